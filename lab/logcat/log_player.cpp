#include "lab/logcat/log_player.h"

#include <algorithm>

namespace lab {
namespace {

// Stands for a list that the log does not tell; it drives no node.
const std::vector<int> kUntoldList = {0, 0};

}  // namespace

// Never back: requests of two threads may overlap.
void LogPlayer::AdvanceTo(Time at) {
    mPhone.GetClock().AdvanceTo(std::max(mPhone.GetClock().Now(), at));
    HandOn();
}

void LogPlayer::Play(const LogRequest& request) {
    if (request.isRequest) AdvanceTo(request.at);
    if (request.isRequest) {
        mPhone.Events().Add(
            RequestBegin{request.text, request.line, request.client, request.command});
    }
    if (request.isRestart) ReleaseAll();
    for (const Event& effect : request.effects) {
        // What falls due at the very time of a timer's doing comes after it: the timer was set
        // before the lock was taken.
        AdvanceTo(request.isRequest ? effect.at : effect.at - Time(1));
        mEffectAt = effect.at;
        Perform(request, effect.what);
        HandOn(std::get_if<LockAcquire>(&effect.what));
        mEffectAt = Time{};
    }
    if (request.isRequest) mPhone.Events().Add(RequestEnd{request.result});
    HandOn();
}

void LogPlayer::Perform(const LogRequest& request, const What& what) {
    if (const auto* acquire = std::get_if<LockAcquire>(&what)) {
        Acquire(request, *acquire);
    } else if (const auto* release = std::get_if<LockRelease>(&what)) {
        Release(*release);
    } else if (const auto* access = std::get_if<NodeAccess>(&what)) {
        Write(*access);
    } else {
        mPhone.Events().Add(what);
    }
}

void LogPlayer::Acquire(const LogRequest& request, const LockAcquire& acquire) {
    PerfHal& hal = mPhone.Hal();
    const std::vector<int>& list = acquire.list.empty() ? kUntoldList : acquire.list;
    const int count = static_cast<int>(list.size());
    const int durationMs = std::max(acquire.durationMs, 0);
    if (acquire.returned < 1) {
        hal.RefuseNext(1, acquire.returned);
        hal.Acquire(0, durationMs, list.data(), count);
        return;
    }
    // The phone's HAL has the last word on which lock was renewed and which number is free again.
    const auto former = mLabHandles.find(acquire.requestedHandle);
    const bool isRenewal = acquire.requestedHandle == acquire.returned &&
                           former != mLabHandles.end() && IsHeld(former->second);
    if (!isRenewal) {
        for (const int handle : {acquire.requestedHandle, acquire.returned}) {
            const auto lab = mLabHandles.find(handle);
            if (lab != mLabHandles.end() && IsHeld(lab->second)) hal.Release(lab->second);
        }
        HandOn();
    }
    const int lab = hal.Acquire(isRenewal ? former->second : 0, durationMs, list.data(), count);
    mLabHandles[acquire.returned] = lab;
    mLogHandles[lab] = acquire.returned;
    mOwners[lab] = {request.text, request.line};
    if (acquire.list.empty()) {
        mUntold.insert(lab);
    } else {
        mUntold.erase(lab);
    }
}

void LogPlayer::Release(const LockRelease& release) {
    const auto lab = mLabHandles.find(release.handle);
    if (lab == mLabHandles.end()) {
        // Taken before the capture begins.
        mObserve({std::max(mPhone.GetClock().Now(), mEffectAt), release});
        return;
    }
    mPhone.Hal().Release(lab->second);
}

void LogPlayer::Write(const NodeAccess& access) {
    if (access.kind == NodeAccess::Kind::kRead || access.error != 0) {
        mPhone.Events().Add(access);
        return;
    }
    Kernel& kernel = mPhone.GetKernel();
    if (!kernel.Has(access.path) && Kernel::Owns(access.path.c_str())) {
        mMissing.insert(access.path);
        kernel.Force(access.path, "unknown");
    }
    kernel.Write(access.path, access.requested);
}

void LogPlayer::ReleaseAll() {
    for (const PerfHal::Lock& lock : mPhone.Hal().Held()) mPhone.Hal().Release(lock.handle);
    HandOn();
    mLabHandles.clear();
}

bool LogPlayer::IsHeld(int labHandle) const {
    const std::vector<PerfHal::Lock> held = mPhone.Hal().Held();
    return std::any_of(held.begin(), held.end(),
                       [=](const PerfHal::Lock& lock) { return lock.handle == labHandle; });
}

// Hands the phone's events on with the log's handles; `told` is what the log says of the lock that
// was just asked for.
void LogPlayer::HandOn(const LockAcquire* told) {
    const auto logHandle = [this](int lab) {
        const auto found = mLogHandles.find(lab);
        return found == mLogHandles.end() ? lab : found->second;
    };
    for (const Event& seen : mPhone.Events().Events()) {
        Event event = seen;
        event.at = std::max(event.at, mEffectAt);
        if (auto* acquire = std::get_if<LockAcquire>(&event.what)) {
            if (told) *acquire = *told;
        } else if (auto* release = std::get_if<LockRelease>(&event.what)) {
            release->handle = logHandle(release->handle);
        } else if (auto* expire = std::get_if<LockExpire>(&event.what)) {
            expire->handle = logHandle(expire->handle);
        }
        mObserve(event);
    }
    mPhone.Events().Clear();
}

std::vector<LogPlayer::Held> LogPlayer::Locks() const {
    std::vector<Held> locks;
    for (const PerfHal::Lock& lock : mPhone.Hal().Held()) {
        Held held;
        held.handle = mLogHandles.at(lock.handle);
        if (mUntold.count(lock.handle) == 0) held.list = lock.list;
        held.until = lock.until;
        const Owner& owner = mOwners.at(lock.handle);
        held.asker = owner.text;
        held.line = owner.line;
        locks.push_back(std::move(held));
    }
    return locks;
}

}  // namespace lab

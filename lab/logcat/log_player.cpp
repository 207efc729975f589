#include "lab/logcat/log_player.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace lab {
namespace {

// Stands for a list that the log does not tell; it drives no node.
const std::vector<int> kUntoldList = {0, 0};

}  // namespace

// Never back: requests of two threads may overlap.
void LogPlayer::AdvanceTo(Time at) {
    Clock& clock = mPhone.GetClock();
    // One by one: whoever watches finds the nodes as the event leaves them.
    for (auto due = clock.NextDue(); due && *due < at; due = clock.NextDue()) {
        clock.AdvanceTo(*due);
        HandOn();
    }
    clock.AdvanceTo(std::max(clock.Now(), at));
    HandOn();
}

void LogPlayer::Play(const LogRequest& request) {
    if (request.isRequest) {
        AdvanceTo(request.at);
        mPhone.Events().Add(static_cast<const RequestBegin&>(request));
    }
    mLine = request.line;
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
    // What is told of when it ends drives nothing any more.
    const bool isLate = acquire.isEarlier && !request.isEarlier;
    const std::vector<int>& list = acquire.list.empty() || isLate ? kUntoldList : acquire.list;
    const int count = static_cast<int>(list.size());
    const int durationMs = std::max(acquire.durationMs, 0);
    if (!acquire.IsGranted()) {
        hal.RefuseNext(1, acquire.returned);
        hal.Acquire(0, durationMs, list.data(), count);
        return;
    }
    const auto former = mLocks.find(acquire.requestedHandle);
    const bool isRenewal = acquire.requestedHandle == acquire.returned && former != mLocks.end();
    if (!isRenewal) {
        if (!acquire.isEarlier && mFirstHandle == 0) mFirstHandle = acquire.returned;
        // The phone's HAL has the last word on which lock is gone and which number is free again.
        for (const int handle : {acquire.requestedHandle, acquire.returned}) {
            const auto held = mLocks.find(handle);
            if (held != mLocks.end()) hal.Release(held->second.labHandle);
            HandOn();
        }
    }
    const int lab =
        hal.Acquire(isRenewal ? former->second.labHandle : 0, durationMs, list.data(), count);
    mLocks[acquire.returned] = {lab};
    mLogHandles[lab] = acquire.returned;
}

void LogPlayer::Release(const LockRelease& release) {
    const auto lock = mLocks.find(release.handle);
    if (lock != mLocks.end()) {
        mPhone.Hal().Release(lock->second.labHandle);
        return;
    }
    LockRelease told = release;
    // The capture's own have run out; others were taken before it begins.
    told.wasHeld = mFirstHandle == 0 || release.handle < mFirstHandle;
    mObserve({std::max(mPhone.GetClock().Now(), mEffectAt), told});
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
}

// A lock of the lab's has ended: `handle` becomes the log's.
void LogPlayer::End(int& handle) {
    const auto found = mLogHandles.find(handle);
    if (found == mLogHandles.end()) return;
    handle = found->second;
    mLogHandles.erase(found);
    mLocks.erase(handle);
}

void LogPlayer::TakeRead(const NodeAccess& access, bool isKnown, std::optional<std::string>& read) {
    const std::string expected = mPhone.GetKernel().Value(access.path);
    // The plug-in reads whole numbers.
    const bool isSame = std::atoll(expected.c_str()) == std::atoll(access.after.c_str());
    read.reset();
    if (isSame || !mPhone.GetKernel().Has(access.path)) return;
    read = access.after;
    if (isKnown) return;
    if (++mSurprise.count == 1) mSurprise = {1, mLine, access.path, access.after, expected};
    for (const PerfHal::Claim& claim : mPhone.Hal().ClaimsOn(access.path)) {
        const auto lock = mLogHandles.find(claim.handle);
        if (lock != mLogHandles.end()) mLocks[lock->second].doubtLine = mLine;
    }
}

// What stood in a node before the capture first tells of it is the profile's word alone.
void LogPlayer::MarkFirstSight(NodeAccess& access) {
    if (access.error != 0) return;
    const auto [known, isFirst] = mRead.try_emplace(access.path);
    if (access.kind == NodeAccess::Kind::kRead) {
        // What is read is known from then on, whatever the lab's phone has.
        const bool isKnown = isFirst || known->second == access.after;
        TakeRead(access, isKnown, known->second);
    } else if (access.kind == NodeAccess::Kind::kWrite) {
        access.isBeforeUnknown = isFirst;
        if (isFirst || known->second) access.before = known->second.value_or("");
        known->second.reset();
    }
}

// Hands the phone's events on with the log's handles; `told` is what the log says of the lock that
// was just asked for.
void LogPlayer::HandOn(const LockAcquire* told) {
    for (const Event& seen : mPhone.Events().Events()) {
        Event event = seen;
        event.at = std::max(event.at, mEffectAt);
        if (auto* acquire = std::get_if<LockAcquire>(&event.what)) {
            if (told) *acquire = *told;
        } else if (auto* release = std::get_if<LockRelease>(&event.what)) {
            End(release->handle);
        } else if (auto* expire = std::get_if<LockExpire>(&event.what)) {
            End(expire->handle);
        } else if (auto* access = std::get_if<NodeAccess>(&event.what)) {
            MarkFirstSight(*access);
        }
        mObserve(event);
    }
    mPhone.Events().Clear();
}

int LogPlayer::DoubtLine(int handle) const {
    const auto lock = mLocks.find(handle);
    return lock == mLocks.end() ? 0 : lock->second.doubtLine;
}

}  // namespace lab

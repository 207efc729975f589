#include "lab/phone/posix_timers.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "lab/phone/events.h"
#include "lab/phone/real_function.h"

namespace lab {

namespace {

constexpr long kNsPerSecond = 1'000'000'000;

// The upper half of an id tells it from those of the C library: small numbers and addresses.
static_assert(sizeof(timer_t) == 8, "ids need 64 bits");
constexpr uintptr_t kIdMark = 0x5F1A0000'00000000;
constexpr uintptr_t kIdMarkMask = 0xFFFF0000'00000000;

std::atomic<uintptr_t> gLastId{kIdMark};

bool IsValid(const timespec& time) {
    return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < kNsPerSecond;
}

Time ToTime(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

timespec ToTimespec(Time time) {
    return {static_cast<time_t>(time.count() / kNsPerSecond),
            static_cast<long>(time.count() % kNsPerSecond)};
}

}  // namespace

int64_t ToMs(const timespec& time) {
    constexpr long kNsPerMs = 1'000'000;
    return int64_t{time.tv_sec} * 1000 + (time.tv_nsec + kNsPerMs - 1) / kNsPerMs;
}

bool PosixTimers::IsOurs(timer_t id) {
    return (reinterpret_cast<uintptr_t>(id) & kIdMarkMask) == kIdMark;
}

int PosixTimers::Create(clockid_t clock, const sigevent* notification, timer_t* id) {
    if (notification == nullptr || id == nullptr) return Fail(EINVAL);
    const bool isThread = notification->sigev_notify == SIGEV_THREAD;
    if (!isThread && notification->sigev_notify != SIGEV_NONE) return Fail(EINVAL);
    if (isThread && notification->sigev_notify_function == nullptr) return Fail(EINVAL);
    std::lock_guard<std::mutex> guard(mMutex);
    *id = reinterpret_cast<timer_t>(++gLastId);  // NOLINT(performance-no-int-to-ptr): by type only
    mTimers[*id].notification = *notification;
    mRecorder.Add(TimerEvent{TimerEvent::Kind::kCreate, 0, clock});
    return 0;
}

int PosixTimers::Set(timer_t id, int flags, const itimerspec* value, itimerspec* former) {
    std::lock_guard<std::mutex> guard(mMutex);
    Timer* const timer = Find(id);
    if (timer == nullptr || value == nullptr || flags != 0 || !IsValid(value->it_value) ||
        !IsValid(value->it_interval)) {
        return Fail(EINVAL);
    }
    if (former != nullptr) *former = Remaining(*timer);
    if (timer->expiry) mClock.Cancel(*timer->expiry);
    timer->expiry.reset();
    const Time delay = ToTime(value->it_value);
    if (delay == Time::zero()) {
        timer->interval = Time::zero();
        mRecorder.Add(TimerEvent{TimerEvent::Kind::kDisarm, 0});
        return 0;
    }
    timer->interval = ToTime(value->it_interval);
    Arm(id, *timer, mClock.Now() + delay);
    mRecorder.Add(TimerEvent{TimerEvent::Kind::kArm, ToMs(value->it_value)});
    return 0;
}

int PosixTimers::Get(timer_t id, itimerspec* remaining) {
    std::lock_guard<std::mutex> guard(mMutex);
    const Timer* const timer = Find(id);
    if (timer == nullptr || remaining == nullptr) return Fail(EINVAL);
    *remaining = Remaining(*timer);
    return 0;
}

int PosixTimers::Delete(timer_t id) {
    std::lock_guard<std::mutex> guard(mMutex);
    const Timer* const timer = Find(id);
    if (timer == nullptr) return Fail(EINVAL);
    if (timer->expiry) mClock.Cancel(*timer->expiry);
    mTimers.erase(id);
    mRecorder.Add(TimerEvent{TimerEvent::Kind::kDelete, 0});
    return 0;
}

PosixTimers::Timer* PosixTimers::Find(timer_t id) {
    const auto found = mTimers.find(id);
    return found == mTimers.end() ? nullptr : &found->second;
}

void PosixTimers::Arm(timer_t id, Timer& timer, Time when) {
    timer.expiry = mClock.Schedule(when, [this, id] { Fire(id); });
}

// Called by the clock; the timer may have been set again or deleted meanwhile.
void PosixTimers::Fire(timer_t id) {
    sigevent notification{};
    {
        std::lock_guard<std::mutex> guard(mMutex);
        Timer* const timer = Find(id);
        if (timer == nullptr || !timer->expiry) return;
        const Time when = timer->expiry->first;
        if (when > mClock.Now()) return;
        notification = timer->notification;
        timer->expiry.reset();
        if (timer->interval > Time::zero()) Arm(id, *timer, when + timer->interval);
        mRecorder.Add(TimerEvent{TimerEvent::Kind::kFire, 0});
    }
    if (notification.sigev_notify == SIGEV_THREAD) {
        std::thread([&notification] {
            notification.sigev_notify_function(notification.sigev_value);
        }).join();
    }
}

itimerspec PosixTimers::Remaining(const Timer& timer) const {
    itimerspec remaining{};
    if (!timer.expiry) return remaining;
    // A timer that is due but has not fired yet is still armed: never all zero.
    const Time rest = std::max<Time>(timer.expiry->first - mClock.Now(), Time(1));
    remaining.it_value = ToTimespec(rest);
    remaining.it_interval = ToTimespec(timer.interval);
    return remaining;
}

}  // namespace lab

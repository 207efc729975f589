#include "config/breakthrough_timer.h"

#include <algorithm>

#include "base/log.h"

namespace tarquel {

namespace {

constexpr int kLongestMs = 3000;
constexpr int kMsPerSecond = 1000;
constexpr long kNsPerMs = 1000000;

}  // namespace

void BreakthroughTimer::CreateTimer(void (*callback)(sigval), void* owner) {
    std::lock_guard lock(mMutex);
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_notify_function = callback;
    event.sigev_value.sival_ptr = owner;
    mTimerCreated = timer_create(CLOCK_MONOTONIC, &event, &mTimerId) == 0;
    if (!mTimerCreated) TARQUEL_LOGE("tarquel Failed to create timer");
}

void BreakthroughTimer::DeleteTimer() {
    std::lock_guard lock(mMutex);
    if (!mTimerCreated) return;
    if (timer_delete(mTimerId) != 0) TARQUEL_LOGE("Failed to delete timer for a request");
    mTimerCreated = false;
}

void BreakthroughTimer::Start(int ms) {
    ms = std::min(ms, kLongestMs);
    const uint32_t expiriesBefore = mExpiries;
    uint32_t number = 0;
    {
        std::lock_guard lock(mMutex);
        // Armed before it is numbered: an expiry of an earlier breakthrough that is only now on its
        // way finds either the earlier number or an armed timer, and never ends this one.
        if (ms > RemainingMs()) Arm(ms);
        if (++mLastNumber == 0) ++mLastNumber;
        number = mLastNumber;
        mControl.mBreakThrough = number;
    }
    // An expiry in between may have been this one's own and found no number to end.
    if (mExpiries != expiriesBefore && !IsArmed()) End(number);
}

void BreakthroughTimer::Cancel() {
    std::lock_guard lock(mMutex);
    mControl.mBreakThrough = 0;
    Arm(0);
}

void BreakthroughTimer::Disarm() {
    std::unique_lock lock(mMutex);
    Arm(0);
    const uint32_t running = mControl.mBreakThrough;
    lock.unlock();
    if (running != 0) {
        RestoreLimits(running, "tarquel SetTimer End Temperature Control Breakthrough");
    }
}

// 0 when the timer is not armed, not there or cannot be read. Called with the mutex held.
int64_t BreakthroughTimer::RemainingMs() const {
    if (!mTimerCreated) return 0;
    itimerspec remaining{};
    if (timer_gettime(mTimerId, &remaining) != 0) {
        TARQUEL_LOGE("Failed to get timer");
        return 0;
    }
    return int64_t{remaining.it_value.tv_sec} * kMsPerSecond +
           remaining.it_value.tv_nsec / kNsPerMs;
}

// 0 disarms. Called with the mutex held.
void BreakthroughTimer::Arm(int ms) {
    if (!mTimerCreated) return;
    itimerspec once{};
    once.it_value.tv_sec = ms / kMsPerSecond;
    once.it_value.tv_nsec = (ms % kMsPerSecond) * kNsPerMs;
    if (timer_settime(mTimerId, 0, &once, nullptr) != 0) TARQUEL_LOGE("Failed to set timer");
}

// True while the timer counts, also when it is due and has not fired.
bool BreakthroughTimer::IsArmed() const {
    itimerspec remaining{};
    return mTimerCreated && timer_gettime(mTimerId, &remaining) == 0 &&
           (remaining.it_value.tv_sec != 0 || remaining.it_value.tv_nsec != 0);
}

void BreakthroughTimer::Expire() {
    ++mExpiries;
    const uint32_t running = mControl.mBreakThrough;
    // An armed timer counts for what began, or was prolonged, since this expiry set out; its own
    // expiry will come.
    if (running == 0 || IsArmed()) return;
    End(running);
}

// Ends the breakthrough of this number if it is the one that runs.
void BreakthroughTimer::End(uint32_t number) {
    // First: what a request stores before it finds no breakthrough, the restore finds stored; and a
    // request that finds none writes its node itself.
    uint32_t running = number;
    if (!mControl.mBreakThrough.compare_exchange_strong(running, 0)) return;
    RestoreLimits(number, "tarquel TimerCallback End Temperature Control Breakthrough");
}

void BreakthroughTimer::RestoreLimits(uint32_t number, const char* message) {
    if (mControl.mPerf != 0) return;
    mFreqManager.GetLastFreqLimitStrategy();
    mScaling.RestoreCeilings(number);
    TARQUEL_LOGI_IF(mSwitches.IsDebug(), "%s", message);
}

}  // namespace tarquel

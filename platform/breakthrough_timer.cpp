#include "platform/breakthrough_timer.h"

#include <algorithm>
#include <exception>

#include "freq/freq_manager.h"
#include "platform/log.h"

namespace tarquel {

namespace {

constexpr int kLongestMs = 3000;
constexpr int kMsPerSecond = 1000;
constexpr long kNsPerMs = 1000000;

}  // namespace

int BreakthroughTimer::CreateTimer(void (*callback)(sigval), void* owner) {
    std::lock_guard lock(mMutex);
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_notify_function = callback;
    event.sigev_value.sival_ptr = owner;
    const int result = timer_create(CLOCK_MONOTONIC, &event, &mTimerId);
    if (result == 0) {
        mTimerCreated = true;
    } else {
        TARQUEL_LOGE("tarquel Failed to create timer");
    }
    return result;
}

int BreakthroughTimer::DeleteTimer() {
    try {
        std::lock_guard lock(mMutex);
        if (!mTimerCreated) return -1;
        const int result = timer_delete(mTimerId);
        if (result != 0) TARQUEL_LOGE("Failed to delete timer for a request");
        mTimerCreated = false;
        return result;
    } catch (const std::exception& error) {
        TARQUEL_LOGE("Exception caught: %s in %s", error.what(), "DeleteTimer");
    } catch (...) {
        TARQUEL_LOGE("Exception caught in %s", "DeleteTimer");
    }
    return -1;
}

void BreakthroughTimer::Start(int ms) {
    std::lock_guard lock(mMutex);
    // Before the timer is armed: an expiry finds what it is to end, however soon it comes.
    if (++mLastNumber == 0) ++mLastNumber;
    mControl.mBreakThrough = mLastNumber;
    ArmUnlessLonger(std::min(ms, kLongestMs));
}

void BreakthroughTimer::Cancel() {
    std::lock_guard lock(mMutex);
    mControl.mBreakThrough = 0;
    Arm(0);
}

int BreakthroughTimer::SetTimer(int ms) {
    int result = -1;
    {
        std::lock_guard lock(mMutex);
        result = ms == 0 ? Arm(0) : ArmUnlessLonger(std::min(ms, kLongestMs));
    }
    if (ms == 0 && mFreqManager != nullptr) {
        mFreqManager->RunInTurn(
            [this] { RestoreLimits("tarquel SetTimer End Temperature Control Breakthrough"); });
    }
    return result;
}

// Called with the mutex held.
int BreakthroughTimer::ArmUnlessLonger(int ms) {
    return ms <= RemainingMs() ? -1 : Arm(ms);
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

// Called with the mutex held.
int BreakthroughTimer::Arm(int ms) {
    if (!mTimerCreated) return -1;
    itimerspec once{};
    once.it_value.tv_sec = ms / kMsPerSecond;
    once.it_value.tv_nsec = (ms % kMsPerSecond) * kNsPerMs;
    if (timer_settime(mTimerId, 0, &once, nullptr) != 0) {
        TARQUEL_LOGE("Failed to set timer");
        return -1;
    }
    return 0;
}

void BreakthroughTimer::Expire() {
    const uint32_t running = mControl.mBreakThrough;
    if (running == 0 || mFreqManager == nullptr) return;
    // Never back: an earlier breakthrough's expiry may be late.
    uint32_t expired = mExpired;
    while (static_cast<int32_t>(running - expired) > 0 &&
           !mExpired.compare_exchange_weak(expired, running)) {
    }
    mFreqManager->RunBetweenRequests(mEnd);
}

// Called in a turn of the frequency manager's. A breakthrough that began meanwhile goes on.
void BreakthroughTimer::EndExpired() {
    uint32_t expired = mExpired;
    if (mControl.mBreakThrough != expired) return;
    RestoreLimits("tarquel TimerCallback End Temperature Control Breakthrough");
    mControl.mBreakThrough.compare_exchange_strong(expired, 0);
}

// Called in a turn of the frequency manager's.
void BreakthroughTimer::RestoreLimits(const char* message) {
    if (mControl.mPerf != 0 || mControl.mBreakThrough == 0) return;
    mFreqManager->GetLastFreqLimitStrategy();
    mScaling.WriteAllScaling();
    if (mSwitches.IsDebug()) TARQUEL_LOGI("%s", message);
}

}  // namespace tarquel

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

int BreakthroughTimer::SetTimer(int ms) {
    ms = std::min(ms, kLongestMs);
    int result = -1;
    {
        std::lock_guard lock(mMutex);
        if (ms != 0 && ms <= RemainingMs()) return -1;
        result = Arm(ms);
    }
    if (ms == 0) RestoreLimits("tarquel SetTimer End Temperature Control Breakthrough");
    return result;
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
    RestoreLimits("tarquel TimerCallback End Temperature Control Breakthrough");
    mControl.mBreakThrough = false;
}

void BreakthroughTimer::RestoreLimits(const char* message) {
    if (mControl.mPerf != 0 || !mControl.mBreakThrough) return;
    if (mFreqManager != nullptr) mFreqManager->GetLastFreqLimitStrategy();
    mScaling.WriteAllScaling();
    if (mSwitches.IsDebug()) TARQUEL_LOGI("%s", message);
}

}  // namespace tarquel

// Ends a thermal breakthrough on time: one POSIX timer, and the limits that it puts back.
#pragma once

#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "base/debug_switches.h"
#include "config/control_state.h"
#include "config/scaling_writeback.h"
#include "freq/freq_manager.h"

namespace tarquel {

// While a breakthrough runs, the timer is armed or an expiry is on its way, unless the timer fails.
//
// Threads: any; the timer facility calls back on a thread of its own. docs/threads.md tells what
// happens when they meet.
class BreakthroughTimer {
  public:
    BreakthroughTimer(const DebugSwitches& switches, ControlState& control,
                      ScalingWriteback& scaling, QcomFreqManager& freqManager)
        : mSwitches(switches), mControl(control), mScaling(scaling), mFreqManager(freqManager) {}

    // Creates the timer, unarmed; when it fires, `callback` gets `owner`, and is to call Expire.
    void CreateTimer(void (*callback)(sigval), void* owner);

    // Deletes the timer if there is one.
    void DeleteTimer();

    // Begins a breakthrough of `ms`, or lets the one that is running last at least as long; 3000 ms
    // is the most.
    void Start(int ms);

    // Ends a breakthrough without putting limits back and disarms the timer.
    void Cancel();

    // Disarms the timer and, during a breakthrough without performance mode, puts the limits back.
    // The breakthrough flag stays set: whoever disarms begins another one.
    void Disarm();

    // A breakthrough's time is up: ends it and puts the limits back, unless the timer counts for
    // another one by now. Waits for no request and takes no mutex that a request holds for long.
    void Expire();

  private:
    int64_t RemainingMs() const;
    bool IsArmed() const;
    void Arm(int ms);
    void End(uint32_t number);
    void RestoreLimits(uint32_t number, const char* message);

    const DebugSwitches& mSwitches;
    ControlState& mControl;
    ScalingWriteback& mScaling;
    QcomFreqManager& mFreqManager;

    std::mutex mMutex;  // guards creating, arming, reading and deleting the timer, and mLastNumber
    std::atomic<bool> mTimerCreated{false};
    timer_t mTimerId{};  // written while mTimerCreated is false
    uint32_t mLastNumber = 0;
    std::atomic<uint32_t> mExpiries{0};
};

}  // namespace tarquel

// Ends a thermal breakthrough on time: one POSIX timer, and the limits that it puts back.
#pragma once

#include <signal.h>
#include <time.h>

#include <cstdint>
#include <memory>
#include <mutex>

#include "nodes/scaling_writeback.h"
#include "platform/adapter_state.h"

class QcomFreqManager;

namespace tarquel {

// Threads: any; the timer facility calls back on a thread of its own.
class BreakthroughTimer {
  public:
    BreakthroughTimer(const DebugSwitches& switches, ControlState& control,
                      ScalingWriteback& scaling,
                      const std::unique_ptr<QcomFreqManager>& freqManager)
        : mSwitches(switches), mControl(control), mScaling(scaling), mFreqManager(freqManager) {}

    // Creates the timer, unarmed; when it fires, `callback` gets `owner`, and is to call Expire.
    // Returns timer_create's result.
    int CreateTimer(void (*callback)(sigval), void* owner);

    // Deletes the timer. Returns timer_delete's result, -1 when there is none.
    int DeleteTimer();

    // Arms the timer once, or disarms it.
    //   ms       at most 3000 counts; 0 disarms and, during a breakthrough without performance
    //            mode, puts the limits back (the breakthrough flag stays set)
    //   Returns  0; -1 when as much time as `ms` still remains (the timer runs on), when there is
    //            no timer and when it cannot be set
    int SetTimer(int ms);

    // The breakthrough's time is up: puts the limits back and ends it. Takes no lock.
    void Expire();

  private:
    int64_t RemainingMs() const;
    int Arm(int ms);
    void RestoreLimits(const char* message);

    const DebugSwitches& mSwitches;
    ControlState& mControl;
    ScalingWriteback& mScaling;
    const std::unique_ptr<QcomFreqManager>& mFreqManager;
    std::mutex mMutex;  // guards creating, arming, reading and deleting the timer
    timer_t mTimerId{};
    bool mTimerCreated = false;
};

}  // namespace tarquel

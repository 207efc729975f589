// Ends a thermal breakthrough on time: one POSIX timer, and the limits that it puts back.
#pragma once

#include <signal.h>
#include <time.h>

#include <cstdint>
#include <memory>
#include <mutex>

#include "freq/request_gate.h"
#include "nodes/scaling_writeback.h"
#include "platform/adapter_state.h"

class QcomFreqManager;

namespace tarquel {

// While a breakthrough runs, the timer is armed or an expiry is on its way (unless the timer
// fails): both change together under the timer's mutex.
//
// Threads: any; the timer facility calls back on a thread of its own. docs/threads.md has the order
// of the locks.
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

    // Begins a breakthrough of `ms`, or lets the one that is running last at least as long; 3000 ms
    // is the most.
    void Start(int ms);

    // Ends a breakthrough without putting limits back and disarms the timer. May be called during a
    // request to the frequency manager.
    void Cancel();

    // Arms the timer once, or disarms it.
    //   ms       at most 3000 counts; 0 disarms and, during a breakthrough without performance
    //            mode, puts the limits back (the breakthrough flag stays set)
    //   Returns  0; -1 when as much time as `ms` still remains (the timer runs on), when there is
    //            no timer and when it cannot be set
    //   Threads  any, but with 0 not during a request to the frequency manager, whose end it awaits
    int SetTimer(int ms);

    // The breakthrough's time is up: puts the limits back and ends it, or has the request to the
    // frequency manager that is under way do so as it ends. Waits for nothing.
    void Expire();

  private:
    int64_t RemainingMs() const;
    int ArmUnlessLonger(int ms);
    int Arm(int ms);
    void RestoreLimits(const char* message);
    void EndExpired();

    const DebugSwitches& mSwitches;
    ControlState& mControl;
    ScalingWriteback& mScaling;
    const std::unique_ptr<QcomFreqManager>& mFreqManager;
    const RequestGate::Job mEnd{
        [](void* self) noexcept { static_cast<BreakthroughTimer*>(self)->EndExpired(); }, this};
    std::atomic<uint32_t> mExpired{0};  // number of the breakthrough whose time is up

    std::mutex mMutex;  // guards creating, arming, reading and deleting the timer, and what follows
    timer_t mTimerId{};
    bool mTimerCreated = false;
    uint32_t mLastNumber = 0;
};

}  // namespace tarquel

// Executes the action chains of commands: each action becomes a perf lock, a release or a scene
// request to the frequency manager.
#pragma once

#include <mutex>

#include "base/debug_switches.h"
#include "base/ids.h"
#include "config/breakthrough_timer.h"
#include "config/control_state.h"
#include "freq/freq_manager.h"
#include "locks/handle_cache.h"
#include "locks/perf_lock.h"
#include "tarquel/action.h"
#include "tarquel/perf_adapter.h"

namespace tarquel {

// The ints that the policy server sends with a command; none when it sends a null pointer.
struct Payload {
    Payload(unsigned int num, const int* values)
        : count(static_cast<int>(num)), first(num == 0 ? nullptr : values) {}

    // True for a payload of exactly one value equal to `value`.
    bool Is(int value) const { return count == 1 && first != nullptr && first[0] == value; }
    bool IsOnOrOff() const { return Is(kEventOn) || Is(kEventOff); }

    int count;  // as the server says it; trusted no further than the first value
    const int* first;
};

class ActionExecutor {
  public:
    // `self` is the server's face of the adapter: scenes re-enter DoAction through it.
    ActionExecutor(PerfAdapter& self, const DebugSwitches& switches, const ControlState& control,
                   PerfLockClient& perfLock, HandleCache& handles, BreakthroughTimer& timer,
                   QcomFreqManager& freqManager)
        : mSelf(self),
          mSwitches(switches),
          mControl(control),
          mPerfLock(perfLock),
          mHandles(handles),
          mTimer(timer),
          mFreqManager(freqManager) {}

    // Runs the chain. 0, or -1 when some action's PerfServiceAcq returned neither 0 nor 1.
    int DoAction(const Action& first, const Payload& payload);

    // Asks the server for the duration of `action` and copies its pairs.
    //   duration  ms; replaced by what the server asks for when that is 1 or above
    //   len       in: ints wanted; out: ints copied into `list`, 64 at most
    // A negative `len`, or a null `list` for some, is logged and changes nothing.
    void SavePerfVal(const QcomAction& action, const int* payload, int& duration, int* list,
                     int& len) const;

  private:
    // 0 done (also when the HAL refused), 1 released, -2 no action, -3 no pairs or fewer than the
    // action claims, or what DoOnOffAction returned.
    int PerfServiceAcq(const Action& action, int index, const Payload& payload);

    // Hands a long-term scene to the frequency manager. 0, -1 or the manager's error.
    int DoOnOffAction(const Action& action, const Payload& payload);

    void StartBreakthroughIfAllowed(const Action& action, int durationMs);
    int OnDemandDuration(int cmdId, int durationMs, const int* payload) const;
    int AcquireCommonLock(int cmdId, int durationMs, int* list, int len);
    void LogAcquired(const Action& action, int oldHandle, int newHandle, int durationMs) const;

    PerfAdapter& mSelf;
    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    PerfLockClient& mPerfLock;
    HandleCache& mHandles;
    BreakthroughTimer& mTimer;
    QcomFreqManager& mFreqManager;
    std::mutex mCommonMutex;      // makes replacing the common lock one step
    int mCommonHandle = kNoLock;  // the one lock without a time limit outside events
};

}  // namespace tarquel

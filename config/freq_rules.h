// The rules between a frequency's floor and its ceiling.
#pragma once

#include "base/debug_switches.h"
#include "config/control_state.h"
#include "config/scaling_writeback.h"
#include "locks/perf_service.h"
#include "nodes/tunables.h"

namespace tarquel {

// Threads: callers hold the frequency manager's mutex.
class FreqRules {
  public:
    FreqRules(const DebugSwitches& switches, const ControlState& control, Tunables& tunables,
              ScalingWriteback& scaling, PerfService& perfService)
        : mSwitches(switches),
          mControl(control),
          mTunables(tunables),
          mScaling(scaling),
          mPerfService(perfService) {}

    // Raises or lowers the floor: 0 restores the default, a value above the ceiling is cut to it.
    //   value    kHz (Hz for the GPU)
    //   Returns  the floor now in force
    int UpdateMinCpuFreq(int value, const LimitTags& limit);

    // Sets the ceiling; the floor is pulled down with it when it would be above. A ceiling that
    // returns to its default is restored in its node at once.
    //   value    kHz (Hz for the GPU); 0 restores the default
    //   Returns  what to lock for the ceiling's tag; -1 when its lock must only be released
    int UpdateMaxCpuFreq(int value, const LimitTags& limit);

    enum class Mark { kNone, kWritten };

    // Writes a value to the tag's node, unless the performance policy owns the limits or a
    // breakthrough runs; `mark` says whether the next write-back then leaves the ceiling alone. A
    // tag without a node is logged.
    void WriteUnlessOwned(int tag, int value, Mark mark);

    bool Has(const LimitTags& limit) const { return mTunables.Has(limit); }

  private:
    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    Tunables& mTunables;
    ScalingWriteback& mScaling;
    PerfService& mPerfService;
};

}  // namespace tarquel

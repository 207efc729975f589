// The control type (tag 57): who owns the limits and under which thermal level actions run.
#pragma once

#include "base/debug_switches.h"
#include "config/breakthrough_timer.h"
#include "config/control_state.h"
#include "config/scaling_writeback.h"
#include "nodes/tunables.h"

namespace tarquel {

class ControlType {
  public:
    ControlType(const DebugSwitches& switches, ControlState& control, Tunables& tunables,
                ScalingWriteback& scaling, BreakthroughTimer& timer)
        : mSwitches(switches),
          mControl(control),
          mTunables(tunables),
          mScaling(scaling),
          mTimer(timer) {}

    // Enters a control type; 1, 3 and whatever is not 0 to 10 change nothing. Every type is logged
    // and leaves a jank record. Always 0.
    int SetControlType(int type);

  private:
    void Enter(int perf, int thermal, int enableBoost);
    void ReleaseThermal(int enableBoost);
    void WriteDefaultCeilings();

    const DebugSwitches& mSwitches;
    ControlState& mControl;
    Tunables& mTunables;
    ScalingWriteback& mScaling;
    BreakthroughTimer& mTimer;
};

}  // namespace tarquel

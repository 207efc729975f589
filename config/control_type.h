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

    // Enters a control type. Every type is logged and leaves a jank record.
    //
    // clang-format off
    //   type   mPerf  mThermal  mEnableBoost  breakthrough
    //   0      1      0         1             goes on; the nodes get the hardware's maxima
    //   2, 9   0      -1        as it was     ends
    //   4, 10  0      -1        0             ends
    //   5      1      1         as it was     goes on
    //   6-8    0      2-4       as it was     goes on
    // clang-format on
    //
    // Any other type changes nothing.
    void SetControlType(int type);

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

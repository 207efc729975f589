// Completes an action chain before it runs: the task id of task boosts, and boost frequencies while
// a thermal level is in force.
#pragma once

#include <string>

#include "base/debug_switches.h"
#include "config/control_state.h"
#include "nodes/tunables.h"
#include "tarquel/action.h"

namespace tarquel {

class BoostCompletion {
  public:
    BoostCompletion(const DebugSwitches& switches, const ControlState& control,
                    const Tunables& tunables)
        : mSwitches(switches), mControl(control), mTunables(tunables) {}

    // Stores the task id that `msg` names ("...|targetPid=1234|...") behind the task-boost opcode
    // of every action that takes one. A message without a task id changes nothing. Always 0.
    int DoAddTaskBoostInfo(Action& first, const std::string& msg) const;

    // Appends the ceilings of every cluster to each action that may boost under the thermal level
    // in force, and rewrites the chain's frequency limits to the level's. A level without boost
    // frequencies, such as one beyond 9, lifts to the hardware's maxima. Always 0.
    int DoAddScalingInfo(Action& first) const;

  private:
    void DoAddBoostFreqInfo(Action& first, int level) const;
    void AppendCeilings(Action& action, int level) const;

    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    const Tunables& mTunables;
};

}  // namespace tarquel

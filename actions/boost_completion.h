// Completes an action chain before it runs: the task id of task boosts, and boost frequencies while
// a thermal level is in force.
#pragma once

#include <string>

#include "base/adapter_state.h"
#include "base/cluster_layout.h"
#include "nodes/freq_records.h"
#include "tarquel/action.h"

namespace tarquel {

class BoostCompletion {
  public:
    BoostCompletion(const DebugSwitches& switches, const ControlState& control,
                    const ClusterLayout& layout, const FreqRecords& records)
        : mSwitches(switches), mControl(control), mLayout(layout), mRecords(records) {}

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
    const ClusterLayout& mLayout;
    const FreqRecords& mRecords;
};

// The first piece of `msg`, split at '|', that contains "targetPid"; empty when there is none or it
// is 512 characters or longer.
std::string ParseProcessMsg(const std::string& msg);

}  // namespace tarquel

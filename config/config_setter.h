// Applies arbitrated values by tag: direct writes of nodes, one perf lock for each tag, the control
// type, and the write-back of ceilings at the end of a thermal request.
#pragma once

#include "base/debug_switches.h"
#include "config/control_type.h"
#include "config/freq_rules.h"
#include "config/group_config.h"
#include "config/scaling_writeback.h"
#include "locks/perf_service.h"

namespace tarquel {

// Threads: callers hold the frequency manager's mutex.
class ConfigSetter {
  public:
    ConfigSetter(const DebugSwitches& switches, const ControlState& control, FreqRules& rules,
                 ScalingWriteback& scaling, PerfService& perfService, ControlType& controlType,
                 GroupConfig& group)
        : mSwitches(switches),
          mControl(control),
          mRules(rules),
          mScaling(scaling),
          mPerfService(perfService),
          mControlType(controlType),
          mGroup(group) {}

    // Applies `tagLen` values, one at least, in order. A list whose first tag is the group marker
    // is one group request instead. What cannot be applied is logged and left out.
    void DoRealPerfSetConfig(int clientId, int tagLen, const int* tags, const int* newConfigs);

  private:
    // Whether the tag's value is to be applied; its final value.
    bool Resolve(int tag, int& value);
    void Apply(int tagLen, int tag, int value);

    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    FreqRules& mRules;
    ScalingWriteback& mScaling;
    PerfService& mPerfService;
    ControlType& mControlType;
    GroupConfig& mGroup;
};

}  // namespace tarquel

// Applies arbitrated values by tag: direct writes of nodes, one perf lock for each tag, the control
// type, and the write-back of ceilings at the end of a thermal request.
#pragma once

#include "base/adapter_state.h"
#include "config/control_type.h"
#include "config/freq_rules.h"
#include "config/group_config.h"
#include "config/scaling_writeback.h"
#include "locks/perf_service.h"

namespace tarquel {

// Threads: callers hold the frequency manager's mutex.
class ConfigSetter {
  public:
    ConfigSetter(const DebugSwitches& switches, const ControlState& control,
                 const ClusterLayout& layout, FreqRecords& records, FreqRules& rules,
                 ScalingWriteback& scaling, PerfService& perfService, ControlType& controlType,
                 GroupConfig& group)
        : mSwitches(switches),
          mControl(control),
          mLayout(layout),
          mRecords(records),
          mRules(rules),
          mScaling(scaling),
          mPerfService(perfService),
          mControlType(controlType),
          mGroup(group) {}

    // Applies `tagLen` values in order. A list whose first tag is the group marker is one group
    // request instead. Always 0: what cannot be applied is logged and left out.
    int DoRealPerfSetConfig(int clientId, int tagLen, const int* tags, const int* newConfigs);

  private:
    struct Resolved {
        enum class Kind { kSkip, kLockOnly, kNodeAndLock } kind;
        int value;
        bool touchesMax;
    };

    Resolved Resolve(int tag, int value);
    Resolved ResolveLimit(int tag, int value);
    void LogZero(int tag) const;

    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    const ClusterLayout& mLayout;
    FreqRecords& mRecords;
    FreqRules& mRules;
    ScalingWriteback& mScaling;
    PerfService& mPerfService;
    ControlType& mControlType;
    GroupConfig& mGroup;
};

}  // namespace tarquel

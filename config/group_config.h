// Group requests: many tags held by one perf lock with one duration.
//
// The first position of a group's list is a header: the group key as the tag, the duration in ms as
// the value. Each key has at most one timed and one untimed lock.
#pragma once

#include <map>
#include <span>

#include "base/debug_switches.h"
#include "base/sorted_pairs.h"
#include "base/tags.h"
#include "config/control_state.h"
#include "config/freq_rules.h"
#include "locks/perf_lock.h"
#include "locks/perf_service.h"
#include "nodes/tunables.h"

namespace tarquel {

// The pairs of one group request: a value for each tag, as many as a request has.
using TagValues = SortedPairs<kMaxTags>;

// Threads: callers hold the frequency manager's mutex.
class GroupConfig {
  public:
    GroupConfig(const DebugSwitches& switches, const ControlState& control, Tunables& tunables,
                FreqRules& rules, PerfService& perfService, PerfLockClient& perfLock)
        : mSwitches(switches),
          mControl(control),
          mTunables(tunables),
          mRules(rules),
          mPerfService(perfService),
          mPerfLock(perfLock) {}

    // Replaces the group's lock of the same kind. A group without tags takes none, and neither does
    // one with a core-control tag while isolation is off.
    //   configs[0]  ms; 0 holds until replaced or cancelled, negative cancels the untimed lock
    void DoGroupPerfSetConfig(int clientId, int tagLen, const int* tags, const int* configs);

  private:
    bool DoGroupPerfRel(int groupKey, int duration);
    TagValues UpdateGroupTagMap(int tagLen, const int* tags, const int* configs);
    void ApplyCeiling(int tagLen, const LimitTags& limit, int value);
    bool FillList(const TagValues& group, int duration, std::span<int> list);

    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    Tunables& mTunables;
    FreqRules& mRules;
    PerfService& mPerfService;
    PerfLockClient& mPerfLock;
    std::map<int, int> mTimedGroupHandleMap;    // group key -> handle
    std::map<int, int> mUntimedGroupHandleMap;  // group key -> handle
};

}  // namespace tarquel

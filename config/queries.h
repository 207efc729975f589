// The read side of the adapter: present values of tags, status, and the ceilings of an action.
#pragma once

#include <map>
#include <string>

#include "base/debug_switches.h"
#include "config/control_state.h"
#include "nodes/tunables.h"
#include "tarquel/action.h"

namespace tarquel {

// Threads: any.
class Queries {
  public:
    Queries(const DebugSwitches& switches, const ControlState& control, Tunables& tunables)
        : mSwitches(switches), mControl(control), mTunables(tunables) {}

    // Reads `tagLen` tags into `values`; a tag that cannot be read keeps its slot. Always 0.
    int DoPerfGetConfig(int tagLen, const int* tags, int* values);

    // Sets "mPB_Prior" and "mTB_Prior". Always 0.
    int GetPerfEventStatus(std::map<std::string, int>& status) const;

    // Lists the frequency ceilings among the pairs of `action`, 133 at most.
    //   release  not 0: all of them with the value 0; else those with a value of 1 or above
    //   Returns  the number of entries written; -1 for an action with fewer pairs than it claims
    int GetLimitTagValue(const Action& action, int release, int* tags, int* freqs) const;

  private:
    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    Tunables& mTunables;
};

}  // namespace tarquel

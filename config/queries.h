// The read side of the adapter: present values of tags, status, and the ceilings of an action.
#pragma once

#include <map>
#include <string>

#include "base/adapter_state.h"
#include "nodes/freq_records.h"
#include "nodes/node_io.h"
#include "nodes/node_table.h"
#include "tarquel/action.h"

namespace tarquel {

// Threads: any.
class Queries {
  public:
    Queries(const DebugSwitches& switches, const ControlState& control, const FreqRecords& records,
            const NodeIo& io, NodeTable& nodes)
        : mSwitches(switches), mControl(control), mRecords(records), mIo(io), mNodes(nodes) {}

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
    const FreqRecords& mRecords;
    const NodeIo& mIo;
    NodeTable& mNodes;
};

}  // namespace tarquel

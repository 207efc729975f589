// Reads and writes one kernel tunable through a list of alternative paths: the first path that
// opens is the one that counts. Nothing reports a failure to its caller; all of it is in the log.
#pragma once

#include "base/adapter_state.h"
#include "nodes/node_paths.h"

namespace tarquel {

// Keeps no state of its own: any thread may call.
class NodeIo {
  public:
    explicit NodeIo(const DebugSwitches& switches) : mSwitches(switches) {}

    // Reads a decimal integer into `*target`, which keeps its value when no path opens or the node
    // holds no number. A number beyond int saturates. A null target does nothing.
    void ReadNode(const NodePaths& paths, int* target) const;

    // Writes `value` as a bare decimal.
    void WriteNode(const NodePaths& paths, int value) const;

  private:
    const DebugSwitches& mSwitches;
};

}  // namespace tarquel

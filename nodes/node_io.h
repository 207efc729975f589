// Reads and writes kernel tunables: the one place that opens nodes. A failure is in the log.
#pragma once

#include "base/debug_switches.h"
#include "nodes/node_paths.h"

namespace tarquel {

// Of a list of alternative paths the first that opens is the one that counts. Keeps no state of its
// own: any thread may call.
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

// Writes the whole of `value` to `path` in one call, without a newline. 0, or -1 with a log line.
int WriteNodesValue(const char* path, const char* value);

}  // namespace tarquel

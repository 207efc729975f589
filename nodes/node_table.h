// Which kernel nodes stand for each tag on this device.
//
// Built once, while the adapter is built. CPU hot-plug does not rebuild it: a per-cluster tag lists
// the node of every CPU, so that the cluster's shared file is reached through whichever is online.
#pragma once

#include <array>
#include <atomic>
#include <span>

#include "base/cpu_info.h"
#include "nodes/node_path_table.h"
#include "nodes/node_paths.h"

namespace tarquel {

class NodeTable {
  public:
    explicit NodeTable(const CpuClusters& clusters);

    // The paths of a tag that the table holds, or null. Threads: any.
    const NodePaths* Find(int tag) const;

    // The paths of a tag from 0 to 127. One that the table does not hold is entered with no path at
    // all: reads and writes of it do nothing, and Find finds it from then on. Threads: any.
    const NodePaths& Get(int tag);

  private:
    // Tags above the highest one that any table names are held by nobody.
    static constexpr int kTags = 128;
    struct Entry {
        NodePaths paths;
        std::atomic<bool> isHeld{false};
    };

    void Assign(int tag, const NodePaths& paths);
    void AddFixed(std::span<const FixedNode> rows, const CpuClusters& clusters);
    void AddPerCluster(std::span<const ClusterNode> rows, const CpuClusters& clusters);

    std::array<Entry, kTags> mCpuNodeMap;
};

}  // namespace tarquel

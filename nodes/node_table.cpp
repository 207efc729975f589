#include "nodes/node_table.h"

namespace tarquel {

using namespace node_tables;

NodeTable::NodeTable(const ClusterLayout& layout) {
    AddFixed(kGpuNodes, layout);
    AddPerCluster(kCpuinfoNodes, layout);
    AddPerCluster(kCpuFreqNodes, layout);
    AddPerCluster(kOnlineCoreNodes, layout);
    AddFixed(kCgroupNodes, layout);
    AddFixed(kBusNodes, layout);
    AddFixed(kSchedNodes, layout);
    AddFixed(kGovernorNodes, layout);
}

void NodeTable::Assign(int tag, const NodePaths& paths) {
    Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    entry.paths = paths;
    entry.isHeld = true;
}

void NodeTable::AddFixed(std::span<const FixedNode> rows, const ClusterLayout& layout) {
    for (const FixedNode& row : rows) {
        if (row.layout == Layout::kThreeClusters && !layout.HasPrimeCluster()) continue;
        Assign(row.tag, NodePaths(row.path));
    }
}

void NodeTable::AddPerCluster(std::span<const ClusterNode> rows, const ClusterLayout& layout) {
    for (const ClusterNode& row : rows) {
        switch (row.cluster) {
            case Cluster::kLittle:
                Assign(row.tag, NodePaths::OfCluster(layout.cpus.little, row.suffix));
                break;
            case Cluster::kMiddle:
                if (!layout.HasPrimeCluster()) break;
                Assign(row.tag, NodePaths::OfCluster(layout.cpus.big, row.suffix));
                break;
            case Cluster::kLast:
                Assign(row.tag, NodePaths::OfCluster(layout.LastCluster(), row.suffix));
                break;
        }
    }
}

const NodePaths* NodeTable::Find(int tag) const {
    if (tag < 0 || tag >= kTags) return nullptr;
    const Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    return entry.isHeld ? &entry.paths : nullptr;
}

const NodePaths& NodeTable::Get(int tag) {
    static constexpr NodePaths kNoPaths;
    if (tag < 0 || tag >= kTags) return kNoPaths;
    Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    entry.isHeld = true;
    return entry.paths;
}

}  // namespace tarquel

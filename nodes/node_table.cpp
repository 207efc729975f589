#include "nodes/node_table.h"

namespace tarquel {

using namespace node_tables;

NodeTable::NodeTable(const CpuClusters& clusters) {
    AddFixed(kGpuNodes, clusters);
    AddPerCluster(kCpuinfoNodes, clusters);
    AddPerCluster(kCpuFreqNodes, clusters);
    AddPerCluster(kOnlineCoreNodes, clusters);
    AddFixed(kCgroupNodes, clusters);
    AddFixed(kBusNodes, clusters);
    AddFixed(kSchedNodes, clusters);
    AddFixed(kGovernorNodes, clusters);
}

void NodeTable::Assign(int tag, const NodePaths& paths) {
    Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    entry.paths = paths;
    entry.isHeld = true;
}

void NodeTable::AddFixed(std::span<const FixedNode> rows, const CpuClusters& clusters) {
    for (const FixedNode& row : rows) {
        if (row.layout == Layout::kThreeClusters && !clusters.HasPrime()) continue;
        Assign(row.tag, NodePaths(row.path));
    }
}

void NodeTable::AddPerCluster(std::span<const ClusterNode> rows, const CpuClusters& clusters) {
    for (const ClusterNode& row : rows) {
        switch (row.cluster) {
            case Cluster::kLittle:
                Assign(row.tag, NodePaths::OfCluster(clusters.little, row.suffix));
                break;
            case Cluster::kMiddle:
                if (!clusters.HasPrime()) break;
                Assign(row.tag, NodePaths::OfCluster(clusters.big, row.suffix));
                break;
            case Cluster::kLast:
                Assign(row.tag, NodePaths::OfCluster(clusters.Last(), row.suffix));
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
    Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    entry.isHeld = true;
    return entry.paths;
}

}  // namespace tarquel

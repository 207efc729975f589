#include "nodes/node_table.h"

#include "base/log.h"

namespace tarquel {

using namespace node_tables;

void NodeTable::InitGpuFreqNode() {
    AddFixed(kGpuNodes);
}
void NodeTable::InitCpuCtlCgroupNode() {
    AddFixed(kCgroupNodes);
}
void NodeTable::InitCpuLlccDdrL3Node() {
    AddFixed(kBusNodes);
}
void NodeTable::InitSchedNode() {
    AddFixed(kSchedNodes);
}
void NodeTable::InitSchedutilHispeedClusterNode() {
    AddFixed(kGovernorNodes);
}

void NodeTable::InitCpuInfoFreqNode() {
    AddPerCluster(kCpuinfoNodes);
    if (mSwitches.IsVerbose()) {
        TARQUEL_LOGI("tarquel: InitCpuInfoFreqNode mPrimeCluster = %d.\n", mLayout.mPrimeCluster);
    }
}

void NodeTable::InitCpuFreqNode() {
    AddPerCluster(kCpuFreqNodes);
    if (mSwitches.IsVerbose()) {
        TARQUEL_LOGI("tarquel: InitCpuFreqNode mPrimeCluster = %d.\n", mLayout.mPrimeCluster);
    }
}

void NodeTable::InitOnlineCoreNode() {
    AddPerCluster(kOnlineCoreNodes);
    if (mSwitches.IsVerbose()) {
        TARQUEL_LOGI("tarquel: InitOnlineCoreNode mPrimeCluster = %d.\n", mLayout.mPrimeCluster);
    }
}

void NodeTable::Assign(int tag, const NodePaths& paths) {
    Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    entry.paths = paths;
    entry.isHeld = true;
}

void NodeTable::AddFixed(std::span<const FixedNode> rows) {
    for (const FixedNode& row : rows) {
        if (row.layout == Layout::kThreeClusters && !mLayout.HasPrimeCluster()) continue;
        Assign(row.tag, NodePaths(row.path));
    }
}

void NodeTable::AddPerCluster(std::span<const ClusterNode> rows) {
    for (const ClusterNode& row : rows) {
        switch (row.cluster) {
            case Cluster::kLittle:
                Assign(row.tag, NodePaths::OfCluster(mLayout.cpus.little, row.suffix));
                break;
            case Cluster::kMiddle:
                if (!mLayout.HasPrimeCluster()) break;
                Assign(row.tag, NodePaths::OfCluster(mLayout.cpus.big, row.suffix));
                break;
            case Cluster::kLast:
                Assign(row.tag, NodePaths::OfCluster(mLayout.LastCluster(), row.suffix));
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

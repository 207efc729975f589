#include "nodes/node_table.h"

#include <utility>

#include "platform/log.h"
#include "platform/trace.h"
#include "tarquel/securec.h"

namespace tarquel {

using namespace node_tables;

namespace {

constexpr int kMaxClusterCpus = 256;

}  // namespace

void GetCpuFreqNode(NodeList& paths, std::string_view suffix, int cpu) {
    TextBuffer path{};
    if (snprintf_s(path.data(), path.size(), path.size() - 1, "%s%d%s", kCpuPrefix.data(), cpu,
                   suffix.data()) < 0) {
        TARQUEL_LOGE("tarquel: snprintf_s path failed!\n");
        return;
    }
    paths.emplace_back(path.data());
}

NodeList ClusterNodes(const CpuRange& cpus, std::string_view suffix) {
    NodeList paths;
    const int64_t count = int64_t{cpus.last} - cpus.first + 1;
    if (count > kMaxClusterCpus) {
        TARQUEL_LOGE("tarquel: cpu range %d-%d is too wide\n", cpus.first, cpus.last);
        return paths;
    }
    for (int i = 0; i < count; ++i) GetCpuFreqNode(paths, suffix, cpus.first + i);
    return paths;
}

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

void NodeTable::Assign(int tag, NodeList paths) {
    Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    entry.paths = std::move(paths);
    entry.isHeld = true;
}

void NodeTable::AddFixed(std::span<const FixedNode> rows) {
    for (const FixedNode& row : rows) {
        if (row.layout == Layout::kThreeClusters && !mLayout.HasPrimeCluster()) continue;
        Assign(row.tag, {std::string(row.path)});
    }
}

void NodeTable::AddPerCluster(std::span<const ClusterNode> rows) {
    for (const ClusterNode& row : rows) {
        switch (row.cluster) {
            case Cluster::kLittle:
                Assign(row.tag, ClusterNodes(mLayout.cpus.little, row.suffix));
                break;
            case Cluster::kMiddle:
                if (!mLayout.HasPrimeCluster()) break;
                Assign(row.tag, ClusterNodes(mLayout.cpus.big, row.suffix));
                break;
            case Cluster::kLast:
                Assign(row.tag, ClusterNodes(mLayout.LastCluster(), row.suffix));
                break;
        }
    }
}

const NodeList* NodeTable::Find(int tag) const {
    if (tag < 0 || tag >= kTags) return nullptr;
    const Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    return entry.isHeld ? &entry.paths : nullptr;
}

const NodeList& NodeTable::Get(int tag) {
    static const NodeList kNoPaths;
    if (tag < 0 || tag >= kTags) return kNoPaths;
    Entry& entry = mCpuNodeMap[static_cast<size_t>(tag)];
    entry.isHeld = true;
    return entry.paths;
}

}  // namespace tarquel

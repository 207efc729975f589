#include "nodes/tunables.h"

#include <algorithm>
#include <climits>

#include "nodes/node_path_table.h"

namespace tarquel {

namespace {

void GetDefaultCpuFreqValue(const CpuRange& cpus, const NodeIo& io, CPUFREQ& freq) {
    const NodePaths hardwareMax = NodePaths::OfCluster(cpus, kCpuinfoMaxSuffix);
    const NodePaths floor = NodePaths::OfCluster(cpus, kScalingMinSuffix);
    const NodePaths ceiling = NodePaths::OfCluster(cpus, kScalingMaxSuffix);
    io.ReadNode(hardwareMax, &freq.cpuinfoMaxFreq);
    // A product that boots with a higher floor keeps it: lifting goes back to what was found, not
    // to cpuinfo_min_freq.
    io.ReadNode(floor, &freq.defaultMinFreq);
    io.ReadNode(floor, &freq.mMinFreq);
    io.ReadNode(ceiling, &freq.mMaxFreq);
}

int ReadGpu(const NodeIo& io, const char* path) {
    int value = 0;
    io.ReadNode(NodePaths(path), &value);
    return value;
}

int HzFromMhz(int mhz) {
    constexpr int64_t kHzPerMhz = 1000000;
    return static_cast<int>(std::clamp<int64_t>(mhz * kHzPerMhz, INT_MIN, INT_MAX));
}

}  // namespace

bool Tunables::WriteIfHeld(int tag, int value) const {
    const NodePaths* const paths = nodes.Find(tag);
    if (paths == nullptr) return false;
    io.WriteNode(*paths, value);
    return true;
}

CPUFREQ& Tunables::RecordOf(LimitTags::Domain domain) {
    switch (domain) {
        case LimitTags::kLittle:
            return records.little;
        case LimitTags::kMiddle:
            return records.big;
        case LimitTags::kLast:
            return clusters.HasPrime() ? records.prime : records.big;
        default:
            return records.gpu;
    }
}

// What cannot be read stays as it is for a CPU cluster and becomes 0 for the GPU.
void Tunables::InitDefaultNodeValue() {
    if (clusters.HasPrime()) GetDefaultCpuFreqValue(clusters.prime, io, records.prime);
    GetDefaultCpuFreqValue(clusters.big, io, records.big);
    GetDefaultCpuFreqValue(clusters.little, io, records.little);
    records.gpu.cpuinfoMaxFreq = ReadGpu(io, kGpuMaxClockNode);
    records.gpu.mMaxFreq = ReadGpu(io, kGpuMaxFreqNode);
    records.gpu.defaultMinFreq = HzFromMhz(ReadGpu(io, kGpuMinClockNode));
    records.gpu.mMinFreq = ReadGpu(io, kGpuMinFreqNode);
}

}  // namespace tarquel

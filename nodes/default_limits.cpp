#include "nodes/default_limits.h"

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
    // Meant: the default floor is scaling_min_freq as found, not cpuinfo_min_freq.
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

FreqRecords InitDefaultNodeValue(const ClusterLayout& layout, const NodeIo& io) {
    FreqRecords records;
    if (layout.HasPrimeCluster()) GetDefaultCpuFreqValue(layout.cpus.prime, io, records.prime);
    GetDefaultCpuFreqValue(layout.cpus.big, io, records.big);
    GetDefaultCpuFreqValue(layout.cpus.little, io, records.little);
    records.gpu.cpuinfoMaxFreq = ReadGpu(io, kGpuMaxClockNode);
    records.gpu.mMaxFreq = ReadGpu(io, kGpuMaxFreqNode);
    records.gpu.defaultMinFreq = HzFromMhz(ReadGpu(io, kGpuMinClockNode));
    records.gpu.mMinFreq = ReadGpu(io, kGpuMinFreqNode);
    return records;
}

}  // namespace tarquel

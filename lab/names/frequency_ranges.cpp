#include "lab/names/frequency_ranges.h"

#include <fmt/format.h>

#include "lab/names/node_names.h"

namespace lab {
namespace {

constexpr int64_t kPerKilo = 1000;

FrequencyRange RangeOf(const CpuCluster& cluster) {
    const int first = cluster.firstCpu;
    const int last = cluster.lastCpu;
    const std::string cpus =
        first == last ? fmt::format("CPU {}", first) : fmt::format("CPUs {}-{}", first, last);
    FrequencyRange range{cluster.name, cluster.name + ", " + cpus, false, cluster.khz.front(),
                         cluster.khz.back()};
    for (int cpu = first; cpu <= last; ++cpu) {
        range.nodes.push_back(fmt::format("/sys/devices/system/cpu/cpu{}/cpufreq/scaling_", cpu));
    }
    range.nodes.push_back(fmt::format("/sys/devices/system/cpu/cpufreq/policy{}/scaling_", first));
    return range;
}

FrequencyRange RangeOf(const BusMonitor& bus) {
    const std::string folder = "/sys/devices/system/cpu/bus_dcvs/" + bus.folder + "/";
    const std::string node = ShortNode(folder + "min_freq");
    const std::string name = node.substr(0, node.rfind(' '));
    return {name, name + ", bus monitor", true, bus.khz.front(), bus.khz.back(), 1, {folder}};
}

}  // namespace

std::vector<FrequencyRange> FrequencyRangesOf(const DeviceProfile& device) {
    std::vector<FrequencyRange> ranges;
    for (const CpuCluster& cluster : device.clusters) ranges.push_back(RangeOf(cluster));
    if (!device.gpuMhz.empty()) {
        ranges.push_back({"gpu",
                          "gpu",
                          false,
                          device.gpuMhz.back() * kPerKilo,
                          device.gpuMhz.front() * kPerKilo,
                          kPerKilo,
                          {"/sys/class/kgsl/kgsl-3d0/devfreq/"}});
    }
    for (const BusMonitor& bus : device.buses) ranges.push_back(RangeOf(bus));
    return ranges;
}

}  // namespace lab

#include "lab/check/step_table.h"

#include <algorithm>
#include <cstdlib>

#include "nodes/node_path_table.h"

namespace lab {
namespace {

// A memory-latency monitor of which only the ends are known has two steps in its profile.
constexpr size_t kEndsOnly = 2;

}  // namespace

bool StepTable::Has(int64_t value) const {
    if (isRange) return value >= steps.front() && value <= steps.back();
    return std::binary_search(steps.begin(), steps.end(), value);
}

int64_t StepTable::AtLeast(int64_t value) const {
    const auto reached = std::lower_bound(steps.begin(), steps.end(), value);
    return reached == steps.end() ? steps.back() : *reached;
}

int64_t StepTable::AtMost(int64_t value) const {
    const auto beyond = std::upper_bound(steps.begin(), steps.end(), value);
    return beyond == steps.begin() ? steps.front() : *(beyond - 1);
}

int64_t StepTable::Nearest(int64_t value) const {
    if (Has(value)) return value;
    const int64_t below = AtMost(value);
    const int64_t above = AtLeast(value);
    return std::abs(above - value) < std::abs(value - below) ? above : below;
}

std::optional<StepTable> ClusterSteps(const DeviceProfile& device, const std::string& cluster) {
    const CpuCluster* found = device.FindCluster(cluster);
    if (!found) return std::nullopt;
    return StepTable{device.name + "'s " + cluster + " cluster", found->khz, false};
}

StepTable GpuSteps(const DeviceProfile& device) {
    StepTable table{device.name + "'s GPU", device.gpuMhz, false};
    std::reverse(table.steps.begin(), table.steps.end());
    return table;
}

std::optional<StepTable> StepsOf(const Drive& drive, const DeviceProfile& device) {
    if (drive.unit == Drive::Unit::kGpuMhz) return GpuSteps(device);
    const std::string leaf = drive.path.substr(drive.path.rfind('/') + 1);
    if (leaf == "scaling_min_freq" || leaf == "scaling_max_freq") {
        for (const CpuCluster& cluster : device.clusters) {
            const std::string folder =
                std::string(tarquel::kCpuPrefix) + std::to_string(cluster.firstCpu) + "/";
            if (drive.path.starts_with(folder)) return ClusterSteps(device, cluster.name);
        }
    }
    if (leaf != "min_freq" && leaf != "max_freq") return std::nullopt;
    for (const BusMonitor& bus : device.buses) {
        if (drive.path.find("/" + bus.folder + "/") == std::string::npos) continue;
        return StepTable{device.name + "'s " + bus.folder.substr(0, bus.folder.find('/')) + " bus",
                         bus.khz, !bus.isBandwidthMonitor && bus.khz.size() == kEndsOnly};
    }
    return std::nullopt;
}

}  // namespace lab

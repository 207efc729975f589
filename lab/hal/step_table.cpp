#include "lab/hal/step_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace lab {
namespace {

// A memory-latency monitor of which only the ends are known has two steps in its profile.
constexpr size_t kEndsOnly = 2;

// The factor by which the value misses the table, as when MHz stand where kHz belong; 0 for none.
double UnitSlip(const StepTable& table, int64_t value) {
    for (const double factor : {1e3, 1e6, 1e-3, 1e-6}) {
        const double meant = static_cast<double>(value) * factor;
        if (meant >= static_cast<double>(table.steps.front()) &&
            meant <= static_cast<double>(table.steps.back())) {
            return factor;
        }
    }
    return 0;
}

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

std::optional<RangeFault> FindRangeFault(const StepTable& table, const AskedFrequency& asked) {
    const bool isAbove = asked.value > table.steps.back();
    if (!isAbove && asked.value >= table.steps.front()) return std::nullopt;
    const int64_t end = isAbove ? table.steps.back() : table.steps.front();
    const bool limitsNothing = isAbove != asked.isFloor;
    const double slip = UnitSlip(table, asked.value);
    const std::string where =
        fmt::format("{} = {} {} is {} of {}, {}", asked.name, asked.value, asked.unit,
                    isAbove ? "above the top" : "below the bottom", table.owner, end);
    const std::string advice =
        slip != 0
            ? fmt::format("this {} takes {}; did you mean {}?", asked.kind, asked.unit,
                          table.Nearest(std::llround(static_cast<double>(asked.value) * slip)))
            : fmt::format("write a step from {} to {}", table.steps.front(), table.steps.back());
    return RangeFault{where, limitsNothing ? "it limits nothing" : "it becomes that", advice,
                      slip != 0};
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

StepTable GpuStepsHz(const DeviceProfile& device) {
    StepTable table = GpuSteps(device);
    for (int64_t& step : table.steps) step *= kHzPerMhz;
    return table;
}

std::optional<StepTable> StepsOf(const Drive& drive, const DeviceProfile& device) {
    if (drive.unit == Drive::Unit::kGpuMhz) return GpuSteps(device);
    const std::string leaf = drive.path.substr(drive.path.rfind('/') + 1);
    if (leaf == "scaling_min_freq" || leaf == "scaling_max_freq") {
        const CpuCluster* const cluster = ClusterOfPath(drive.path, device);
        if (cluster != nullptr) return ClusterSteps(device, cluster->name);
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

#include "lab/names/node_names.h"

#include <optional>
#include <string_view>
#include <utility>

#include "nodes/node_path_table.h"

namespace lab {
namespace {

using Cluster = tarquel::ClusterNode::Cluster;

bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

std::string_view After(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix ? text.substr(prefix.size())
                                                   : std::string_view();
}

// "DDR/19091000.qcom,bwmon-ddr/min_freq" as "ddr bwmon min_freq".
std::string ShortBusNode(std::string_view rest) {
    std::string bus(rest.substr(0, rest.find('/')));
    for (char& letter : bus) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    const std::string leaf(rest.substr(rest.rfind('/') + 1));
    if (Contains(rest, "bwmon")) return bus + " bwmon " + leaf;
    if (Contains(rest, "gold-compute")) return bus + " gold-compute " + leaf;
    if (Contains(rest, "memlat")) return bus + " memlat " + leaf;
    return bus + " " + leaf;
}

// The cluster called `name`, or CPU 0: what the plug-in takes for a cluster that nobody describes.
std::pair<int, int> CpusOf(const char* name, const DeviceProfile& device) {
    const CpuCluster* cluster = device.FindCluster(name);
    return cluster ? std::pair(cluster->firstCpu, cluster->lastCpu) : std::pair(0, 0);
}

// The CPUs that a table row means, first and last; nothing when the layout does not have it.
std::optional<std::pair<int, int>> CpusOf(Cluster cluster, const DeviceProfile& device) {
    switch (cluster) {
        case Cluster::kLittle:
            return CpusOf("little", device);
        case Cluster::kMiddle:
            return device.HasPrime() ? std::optional(CpusOf("big", device)) : std::nullopt;
        case Cluster::kLast:
            return CpusOf(device.HasPrime() ? "prime" : "big", device);
    }
    return std::nullopt;
}

template <typename Rows>
void AddClusterNodes(const Rows& rows, int tag, const DeviceProfile& device,
                     std::vector<std::string>& paths) {
    for (const tarquel::ClusterNode& row : rows) {
        if (row.tag != tag) continue;
        const auto cpus = CpusOf(row.cluster, device);
        if (!cpus) continue;
        for (int cpu = cpus->first; cpu <= cpus->second; ++cpu) {
            paths.push_back(std::string(tarquel::kCpuPrefix) + std::to_string(cpu) +
                            std::string(row.suffix));
        }
    }
}

template <typename Rows>
void AddFixedNodes(const Rows& rows, int tag, Layout layout, std::vector<std::string>& paths) {
    for (const tarquel::FixedNode& row : rows) {
        if (row.tag != tag) continue;
        const bool counts =
            row.layout == tarquel::FixedNode::Layout::kAny || layout == Layout::kThreeClusters;
        if (counts) paths.emplace_back(row.path);
    }
}

}  // namespace

std::string ShortNode(const std::string& path) {
    const std::string_view whole = path;
    if (const auto rest = After(whole, tarquel::kCpuPrefix); !rest.empty()) {
        const size_t slash = rest.find('/');
        std::string_view leaf = rest.substr(slash == rest.npos ? rest.size() : slash + 1);
        if (const auto inner = After(leaf, "cpufreq/"); !inner.empty()) leaf = inner;
        return "cpu" + std::string(rest.substr(0, slash)) + " " + std::string(leaf);
    }
    if (const auto rest = After(whole, "/sys/class/kgsl/kgsl-3d0/"); !rest.empty()) {
        return "gpu " + std::string(rest);
    }
    if (const auto rest = After(whole, "/sys/devices/system/cpu/bus_dcvs/"); !rest.empty()) {
        return ShortBusNode(rest);
    }
    if (const auto rest = After(whole, "/proc/sys/walt/"); !rest.empty()) {
        return "walt " + std::string(rest);
    }
    if (const auto rest = After(whole, "/dev/cpuctl/"); !rest.empty()) {
        const size_t slash = rest.find('/');
        if (slash == rest.npos) return "cpuctl " + std::string(rest);
        return std::string(rest.substr(0, slash)) + " " + std::string(rest.substr(slash + 1));
    }
    return path;
}

std::string NodeUnit(const std::string& path) {
    if (Contains(path, "uclamp")) return "%";
    if (Contains(path, "clock_mhz")) return "MHz";
    if (Contains(path, "/kgsl/")) {
        return Contains(path, "_freq") || Contains(path, "gpuclk") ? "Hz" : "";
    }
    if (Contains(path, "_freq")) return "kHz";
    if (Contains(path, "_load") || Contains(path, "migrate") || Contains(path, "percent")) {
        return "%";
    }
    return Contains(path, "_ms") ? "ms" : "";
}

std::string NodeText(std::string value, const std::string& unit) {
    std::replace(value.begin(), value.end(), '\t', ' ');
    return unit.empty() ? value : value + " " + unit;
}

std::string OtherEnd(const std::string& path) {
    const size_t leaf = path.rfind('/') + 1;
    for (const auto& [part, other] : {std::pair("min", "max"), std::pair("max", "min")}) {
        const size_t at = path.find(part, leaf);
        if (at != std::string::npos) return std::string(path).replace(at, 3, other);
    }
    return "";
}

std::vector<std::string> TagNodes(int tag, const DeviceProfile& device) {
    namespace tables = tarquel::node_tables;
    std::vector<std::string> paths;
    AddClusterNodes(tables::kCpuinfoNodes, tag, device, paths);
    AddClusterNodes(tables::kCpuFreqNodes, tag, device, paths);
    AddClusterNodes(tables::kOnlineCoreNodes, tag, device, paths);
    const Layout layout = LayoutOf(device);
    AddFixedNodes(tables::kGpuNodes, tag, layout, paths);
    AddFixedNodes(tables::kCgroupNodes, tag, layout, paths);
    AddFixedNodes(tables::kBusNodes, tag, layout, paths);
    AddFixedNodes(tables::kSchedNodes, tag, layout, paths);
    AddFixedNodes(tables::kGovernorNodes, tag, layout, paths);
    return paths;
}

Layout LayoutOf(const DeviceProfile& device) {
    return device.HasPrime() ? Layout::kThreeClusters : Layout::kTwoClusters;
}

}  // namespace lab

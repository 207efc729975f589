// Which kernel node stands for each tag: one table for each family of nodes.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace tarquel {

// A tag with one node for each CPU of a cluster: kCpuPrefix, the CPU number, the suffix. The last
// cluster is the prime one of three or the big one of two; two clusters have no middle one.
struct ClusterNode {
    enum class Cluster : uint8_t { kLittle, kMiddle, kLast };

    int tag;
    Cluster cluster;
    std::string_view suffix;
};

// A tag with one fixed node. The per-cluster governor nodes name CPU 0, 4 and 7 literally: they do
// not follow the device's clusters. Paths end with a null character.
struct FixedNode {
    enum class Layout : uint8_t { kAny, kThreeClusters };

    int tag;
    Layout layout;
    std::string_view path;
};

inline constexpr std::string_view kCpuPrefix = "/sys/devices/system/cpu/cpu";

inline constexpr std::string_view kScalingMaxSuffix = "/cpufreq/scaling_max_freq";
inline constexpr std::string_view kScalingMinSuffix = "/cpufreq/scaling_min_freq";
inline constexpr std::string_view kCpuinfoMaxSuffix = "/cpufreq/cpuinfo_max_freq";

// Nodes that are also read for the GPU's default limits.
inline constexpr char kGpuMinFreqNode[] = "/sys/class/kgsl/kgsl-3d0/devfreq/min_freq";  // Hz
inline constexpr char kGpuMaxFreqNode[] = "/sys/class/kgsl/kgsl-3d0/devfreq/max_freq";  // Hz
inline constexpr char kGpuMinClockNode[] = "/sys/class/kgsl/kgsl-3d0/min_clock_mhz";    // MHz
inline constexpr char kGpuMaxClockNode[] = "/sys/class/kgsl/kgsl-3d0/max_gpuclk";       // Hz

// clang-format off
namespace node_tables {

using Cluster = ClusterNode::Cluster;
using Layout = FixedNode::Layout;

inline constexpr auto kGpuNodes = std::to_array<FixedNode>({
    {9,   Layout::kAny,           kGpuMinFreqNode},
    {10,  Layout::kAny,           kGpuMaxFreqNode},
    {11,  Layout::kAny,           "/sys/class/kgsl/kgsl-3d0/devfreq/cur_freq"},
    {49,  Layout::kAny,           kGpuMinClockNode},
    {50,  Layout::kAny,           kGpuMaxClockNode},
});

inline constexpr auto kCpuinfoNodes = std::to_array<ClusterNode>({
    {44,  Cluster::kLittle,  kCpuinfoMaxSuffix},
    {43,  Cluster::kLittle,  "/cpufreq/cpuinfo_min_freq"},
    {46,  Cluster::kMiddle,  kCpuinfoMaxSuffix},
    {45,  Cluster::kMiddle,  "/cpufreq/cpuinfo_min_freq"},
    {48,  Cluster::kLast,    kCpuinfoMaxSuffix},
    {47,  Cluster::kLast,    "/cpufreq/cpuinfo_min_freq"},
});

inline constexpr auto kCpuFreqNodes = std::to_array<ClusterNode>({
    {0,   Cluster::kLittle,  kScalingMinSuffix},
    {1,   Cluster::kLittle,  kScalingMaxSuffix},
    {2,   Cluster::kLittle,  "/cpufreq/scaling_cur_freq"},
    {3,   Cluster::kMiddle,  kScalingMinSuffix},
    {4,   Cluster::kMiddle,  kScalingMaxSuffix},
    {5,   Cluster::kMiddle,  "/cpufreq/scaling_cur_freq"},
    {6,   Cluster::kLast,    kScalingMinSuffix},
    {7,   Cluster::kLast,    kScalingMaxSuffix},
    {8,   Cluster::kLast,    "/cpufreq/scaling_cur_freq"},
});

inline constexpr auto kOnlineCoreNodes = std::to_array<ClusterNode>({
    {61,  Cluster::kLittle,  "/core_ctl/max_cpus"},
    {64,  Cluster::kLittle,  "/core_ctl/min_cpus"},
    {62,  Cluster::kMiddle,  "/core_ctl/max_cpus"},
    {65,  Cluster::kMiddle,  "/core_ctl/min_cpus"},
    {63,  Cluster::kLast,    "/core_ctl/max_cpus"},
    {66,  Cluster::kLast,    "/core_ctl/min_cpus"},
});

inline constexpr auto kCgroupNodes = std::to_array<FixedNode>({
    {69,  Layout::kAny,           "/dev/cpuctl/foreground/cpu.uclamp.min"},
    {70,  Layout::kAny,           "/dev/cpuctl/foreground/cpu.uclamp.max"},
    {71,  Layout::kAny,           "/dev/cpuctl/background/cpu.uclamp.min"},
    {72,  Layout::kAny,           "/dev/cpuctl/background/cpu.uclamp.max"},
});

inline constexpr auto kBusNodes = std::to_array<FixedNode>({
    {81,  Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/190b6400.qcom,bwmon-llcc/min_freq"},
    {82,  Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/190b6400.qcom,bwmon-llcc/max_freq"},
    {83,  Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/min_freq"},
    {84,  Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/max_freq"},
    {85,  Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/L3/soc:qcom,memlat:l3:prime/min_freq"},
    {108, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/190b6400.qcom,bwmon-llcc/hist_memory"},
    {109, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/190b6400.qcom,bwmon-llcc/hyst_trigger_count"},
    {110, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/190b6400.qcom,bwmon-llcc/hyst_length"},
    {111, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/190b6400.qcom,bwmon-llcc/sample_ms"},
    {112, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/190b6400.qcom,bwmon-llcc/io_percent"},
    {113, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/LLCC/soc:qcom,memlat:llcc:gold-compute/max_freq"},
    {114, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/hist_memory"},
    {115, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/hyst_trigger_count"},
    {116, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/hyst_length"},
    {117, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/sample_ms"},
    {118, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/io_percent"},
    {119, Layout::kAny,           "/sys/devices/system/cpu/bus_dcvs/DDR/soc:qcom,memlat:ddr:gold-compute/max_freq"},
});

// Two tags each name one upmigrate and one downmigrate file: they differ in their opcode only.
inline constexpr auto kSchedNodes = std::to_array<FixedNode>({
    {97,  Layout::kAny,           "/proc/sys/walt/sched_boost"},
    {93,  Layout::kAny,           "/proc/sys/walt/sched_upmigrate"},
    {94,  Layout::kAny,           "/proc/sys/walt/sched_upmigrate"},
    {95,  Layout::kAny,           "/proc/sys/walt/sched_downmigrate"},
    {96,  Layout::kAny,           "/proc/sys/walt/sched_downmigrate"},
    {120, Layout::kAny,           "/proc/sys/walt/sched_ravg_window_nr_ticks"},
});

inline constexpr auto kGovernorNodes = std::to_array<FixedNode>({
    {88,  Layout::kAny,           "/sys/devices/system/cpu/cpu0/cpufreq/walt/hispeed_freq"},
    {87,  Layout::kAny,           "/sys/devices/system/cpu/cpu4/cpufreq/walt/hispeed_freq"},
    {91,  Layout::kAny,           "/sys/devices/system/cpu/cpu0/cpufreq/walt/hispeed_load"},
    {90,  Layout::kAny,           "/sys/devices/system/cpu/cpu4/cpufreq/walt/hispeed_load"},
    {99,  Layout::kAny,           "/sys/devices/system/cpu/cpu4/cpufreq/walt/rtg_boost_freq"},
    {100, Layout::kAny,           "/sys/devices/system/cpu/cpu0/cpufreq/walt/rtg_boost_freq"},
    {102, Layout::kAny,           "/sys/devices/system/cpu/cpu4/cpufreq/walt/target_load_thresh"},
    {103, Layout::kAny,           "/sys/devices/system/cpu/cpu0/cpufreq/walt/target_load_thresh"},
    {105, Layout::kAny,           "/sys/devices/system/cpu/cpu4/cpufreq/walt/target_load_shift"},
    {106, Layout::kAny,           "/sys/devices/system/cpu/cpu0/cpufreq/walt/target_load_shift"},
    {121, Layout::kAny,           "/sys/devices/system/cpu/cpu4/cpufreq/walt/pl"},
    {122, Layout::kAny,           "/sys/devices/system/cpu/cpu0/cpufreq/walt/pl"},
    {89,  Layout::kThreeClusters, "/sys/devices/system/cpu/cpu7/cpufreq/walt/hispeed_freq"},
    {92,  Layout::kThreeClusters, "/sys/devices/system/cpu/cpu7/cpufreq/walt/hispeed_load"},
    {101, Layout::kThreeClusters, "/sys/devices/system/cpu/cpu7/cpufreq/walt/rtg_boost_freq"},
    {104, Layout::kThreeClusters, "/sys/devices/system/cpu/cpu7/cpufreq/walt/target_load_thresh"},
    {107, Layout::kThreeClusters, "/sys/devices/system/cpu/cpu7/cpufreq/walt/target_load_shift"},
    {123, Layout::kThreeClusters, "/sys/devices/system/cpu/cpu7/cpufreq/walt/pl"},
    {124, Layout::kThreeClusters, "/sys/devices/system/cpu/cpu7/online"},
});

}  // namespace node_tables
// clang-format on

}  // namespace tarquel

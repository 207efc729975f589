// Which nodes a device has, and what they show after boot.
#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <limits>
#include <utility>

#include "lab/phone/freq_limits.h"
#include "lab/phone/node_kinds.h"
#include "lab/phone/node_rules.h"

namespace lab {

namespace {

constexpr int64_t kU32Max = std::numeric_limits<uint32_t>::max();

// The nodes with one number. Order means nothing; names are below the folder that each table's user
// gives.
// clang-format off
constexpr auto kWaltNodes = std::to_array<NumberRule>({
    // name                 scan          low  high     after boot
    {"hispeed_freq",        Scan::kWhole, 0,   kU32Max, 0},
    {"hispeed_load",        Scan::kWhole, 0,   100,     90},
    {"target_load_thresh",  Scan::kWhole, 0,   kU32Max, 1024},
    {"target_load_shift",   Scan::kWhole, 0,   kU32Max, 4},
});

constexpr auto kBandwidthNodes = std::to_array<NumberRule>({
    {"io_percent",          Scan::kWhole, 1,   400,     16},
    {"sample_ms",           Scan::kWhole, 1,   50,      50},
    {"hist_memory",         Scan::kWhole, 0,   90,      0},
    {"hyst_trigger_count",  Scan::kWhole, 0,   90,      3},
    {"hyst_length",         Scan::kWhole, 0,   90,      0},
});
// clang-format on

// The task groups whose clamps the phone has.
constexpr std::array kTaskGroups = {"background", "foreground", "top-app"};

std::string CpuFolder(int cpu) {
    return "/sys/devices/system/cpu/cpu" + std::to_string(cpu);
}

class Layout {
  public:
    Layout(const DeviceProfile& profile, const KernelRules& rules)
        : mProfile(profile), mRules(rules) {}

    std::vector<NamedNode> Take() {
        for (const CpuCluster& cluster : mProfile.clusters) {
            const auto limits = std::make_shared<CpuLimits>(cluster.khz, mRules);
            AddPolicy(cluster, limits);
            AddCores(cluster, limits);
        }
        AddGpu();
        for (const BusMonitor& bus : mProfile.buses) AddBus(bus);
        AddScheduler();
        return std::move(mNodes);
    }

  private:
    void Add(std::string name, std::shared_ptr<Node> node) {
        mNodes.push_back({{std::move(name)}, std::move(node)});
    }

    void AddNumber(const std::string& folder, const NumberRule& rule) {
        Add(folder + std::string(rule.name), MakeNumberNode(rule));
    }

    // The cpufreq folder of every CPU is a link to its policy's.
    void AddPolicyNode(const CpuCluster& cluster, const std::string& name,
                       std::shared_ptr<Node> node) {
        NamedNode named;
        named.names.push_back("/sys/devices/system/cpu/cpufreq/policy" +
                              std::to_string(cluster.firstCpu) + "/" + name);
        for (int cpu = cluster.firstCpu; cpu <= cluster.lastCpu; ++cpu) {
            named.names.push_back(CpuFolder(cpu) + "/cpufreq/" + name);
        }
        named.node = std::move(node);
        mNodes.push_back(std::move(named));
    }

    void AddPolicy(const CpuCluster& cluster, const std::shared_ptr<CpuLimits>& limits) {
        AddPolicyNode(cluster, "scaling_min_freq", MakeFreqLimitNode(limits, Side::kMin));
        AddPolicyNode(cluster, "scaling_max_freq", MakeFreqLimitNode(limits, Side::kMax));
        const auto addReadOnly = [&](const std::string& name, std::function<int64_t()> khz) {
            AddPolicyNode(cluster, name,
                          MakeReadOnlyNode([khz] { return std::to_string(khz()); },
                                           [limits] { return limits->ReadError(); }));
        };
        addReadOnly("cpuinfo_min_freq", [low = cluster.khz.front()] { return low; });
        addReadOnly("cpuinfo_max_freq", [high = cluster.khz.back()] { return high; });
        // No load runs on this phone.
        addReadOnly("scaling_cur_freq", [limits] { return limits->Current(); });

        const auto addWalt = [&](const NumberRule& rule) {
            AddPolicyNode(cluster, "walt/" + std::string(rule.name), MakeNumberNode(rule));
        };
        for (const NumberRule& rule : kWaltNodes) addWalt(rule);
        addWalt({"rtg_boost_freq", Scan::kWhole, 0, kU32Max, cluster.rtgBoostKhz});
        addWalt({"pl", mBool, 0, 1, 0});
    }

    // Core control has its nodes on a cluster's first CPU only. Its ends are not checked against
    // each other: where they cross, the kernel lets the maximum win.
    void AddCores(const CpuCluster& cluster, const std::shared_ptr<CpuLimits>& limits) {
        const int64_t size = cluster.lastCpu - cluster.firstCpu + 1;
        const std::string folder = CpuFolder(cluster.firstCpu) + "/core_ctl/";
        AddNumber(folder, {"min_cpus", Scan::kLeading, 0, size, 1});
        AddNumber(folder, {"max_cpus", Scan::kLeading, 0, size, size});
        *mRunning += size;
        const auto running = std::make_shared<int64_t>(size);
        for (int cpu = cluster.firstCpu; cpu <= cluster.lastCpu; ++cpu) {
            const auto runs = std::make_shared<int64_t>(1);
            const auto take = [runs, running, limits, all = mRunning](int64_t shall) -> int64_t {
                if (shall < *runs && *all == 1) return -EBUSY;  // the phone's last one
                *all += shall - *runs;
                *running += shall - *runs;
                limits->SetOnline(*running > 0);
                return shall;
            };
            Add(CpuFolder(cpu) + "/online", MakeNumberNode(mBool, runs, take));
        }
    }

    void AddGpu() {
        const std::string folder = "/sys/class/kgsl/kgsl-3d0/";
        const int64_t highest = mProfile.gpuMhz.front();
        const int64_t lowest = mProfile.gpuMhz.back();
        const auto limits =
            std::make_shared<DevfreqLimits>(lowest * kHzPerMhz, highest * kHzPerMhz);
        Add(folder + "devfreq/min_freq", MakeFreqLimitNode(limits, Side::kMin));
        Add(folder + "devfreq/max_freq", MakeFreqLimitNode(limits, Side::kMax));
        // Idle: the level in which the GPU starts, as far as the limits allow.
        Add(folder + "devfreq/cur_freq",
            MakeReadOnlyNode([limits, initial = mProfile.gpuInitialMhz * kHzPerMhz] {
                return std::to_string(
                    std::clamp(initial, limits->Show(Side::kMin), limits->Show(Side::kMax)));
            }));
        AddGpuClock(folder + "min_clock_mhz", lowest, kHzPerMhz, 0);
        AddGpuClock(folder + "max_gpuclk", highest, 1, ERANGE);
    }

    // A clock given by the GPU's power levels: a number within 5 MHz of a level selects it, another
    // is `noMatchError` (0: ignored). Numbers are in `hzPerUnit` (1 or 1000000).
    void AddGpuClock(std::string name, int64_t initialMhz, int64_t hzPerUnit, int noMatchError) {
        constexpr int64_t kReachHz = 5 * kHzPerMhz;
        const auto clock = std::make_shared<int64_t>(initialMhz * kHzPerMhz / hzPerUnit);
        const auto select = [=, levels = mProfile.gpuMhz](int64_t number) {
            for (const int64_t mhz : levels) {
                const int64_t hz = mhz * kHzPerMhz;
                if (std::abs(hz - number * hzPerUnit) <= kReachHz) return hz / hzPerUnit;
            }
            return noMatchError == 0 ? *clock : -noMatchError;
        };
        Add(std::move(name), MakeNumberNode(Scan::kWhole, clock, select));
    }

    void AddBus(const BusMonitor& bus) {
        const std::string folder = "/sys/devices/system/cpu/bus_dcvs/" + bus.folder + "/";
        const int64_t lowest = bus.khz.front();
        const int64_t highest = bus.khz.back();
        const auto min = std::make_shared<int64_t>(lowest);
        const auto max = std::make_shared<int64_t>(highest);
        // Each end stays between the hardware's end and the other one.
        const auto takeMin = [=](int64_t khz) { return std::min(std::max(khz, lowest), *max); };
        const auto takeMax = [=](int64_t khz) { return std::max(std::min(khz, highest), *min); };
        Add(folder + "min_freq", MakeNumberNode(Scan::kWhole, min, takeMin));
        Add(folder + "max_freq", MakeNumberNode(Scan::kWhole, max, takeMax));
        if (!bus.isBandwidthMonitor) return;
        for (const NumberRule& rule : kBandwidthNodes) AddNumber(folder, rule);
    }

    void AddScheduler() {
        const std::string folder = "/proc/sys/walt/";
        Add(folder + "sched_boost", MakeSchedBoostNode());
        // Percentages at which a task moves up and down, one of each for each cluster boundary; up
        // stays at or above down. A read always gives two.
        constexpr size_t kShown = 2;
        const size_t boundaries = std::min(mProfile.clusters.size() - 1, kShown);
        const auto up = std::make_shared<Ints>(kShown, 95);
        const auto down = std::make_shared<Ints>(kShown, 85);
        const auto takesUp = [down](size_t index, int64_t percent) {
            return percent >= std::max((*down)[index], int64_t{1}) && percent <= 100;
        };
        const auto takesDown = [up](size_t index, int64_t percent) {
            return percent >= 1 && percent <= std::min((*up)[index], int64_t{100});
        };
        Add(folder + "sched_upmigrate", MakeCheckedSysctlNode(up, boundaries, takesUp));
        Add(folder + "sched_downmigrate", MakeCheckedSysctlNode(down, boundaries, takesDown));
        Add(folder + "sched_ravg_window_nr_ticks", MakeSysctlNode({4}, [](size_t, int64_t ticks) {
                return (ticks >= 2 && ticks <= 5) || ticks == 8;
            }));
        for (const std::string group : kTaskGroups) {
            Add("/dev/cpuctl/" + group + "/cpu.uclamp.min", MakeUclampNode("0"));
            Add("/dev/cpuctl/" + group + "/cpu.uclamp.max", MakeUclampNode("max"));
        }
    }

    const DeviceProfile& mProfile;
    const KernelRules& mRules;
    const Scan mBool = mRules.knowsTrueAndFalse ? Scan::kBoolOrTrueFalse : Scan::kBool;
    const std::shared_ptr<int64_t> mRunning = std::make_shared<int64_t>(0);  // CPUs of the phone
    std::vector<NamedNode> mNodes;
};

}  // namespace

std::vector<NamedNode> LayOutNodes(const DeviceProfile& profile, const KernelRules& rules) {
    return Layout(profile, rules).Take();
}

}  // namespace lab

#include "lab/hal/opcode_drives.h"

#include <algorithm>
#include <array>
#include <limits>
#include <set>
#include <string_view>

#include "nodes/node_path_table.h"
#include "nodes/tag_opcode_table.h"

namespace lab {

namespace {

// The cluster that bits 8 to 11 of an opcode select; null for one that the device lacks.
const CpuCluster* ClusterOf(uint32_t opcode, const DeviceProfile& profile) {
    constexpr std::array kNames = {"big", "little", "prime"};
    const size_t name = opcode >> 8 & 0xF;
    return name < kNames.size() ? profile.FindCluster(kNames[name]) : nullptr;
}

std::string CpuPath(const CpuCluster& cluster, std::string_view suffix) {
    return std::string(tarquel::kCpuPrefix) + std::to_string(cluster.firstCpu) +
           std::string(suffix);
}

// What the HAL knows beside the plug-in's tags: a cluster's scaling_max_freq, in kHz. It writes
// that node in the program's place, so that a lock can lift what a program has set there and what
// other locks' ceilings make of it.
struct ScalingOpcode {
    uint32_t opcode;
    const char* cluster;
};
// A node that scenes can name by key but that has no tag, or another opcode as a tag.
struct KeyOpcode {
    uint32_t opcode;
    std::string_view path;
};
// The number that an opcode stands for in a node with one number for each cluster boundary.
struct EntryOpcode {
    uint32_t opcode;
    size_t entry;
};
// clang-format off
constexpr auto kScalingOpcodes = std::to_array<ScalingOpcode>({
    {0x40810000, "little"},
    {0x40814000, "big"},
    {0x40818000, "prime"},
});

constexpr auto kKeyOpcodes = std::to_array<KeyOpcode>({
    {0x4346C000, "/sys/devices/system/cpu/bus_dcvs/DDR/soc:qcom,memlat:ddr:gold-compute/max_freq"},
    {0x43470000, "/sys/devices/system/cpu/bus_dcvs/LLCC/soc:qcom,memlat:llcc:gold-compute/max_freq"},
    {0x44430000, "/dev/cpuctl/top-app/cpu.uclamp.min"},
    {0x44434000, "/dev/cpuctl/top-app/cpu.uclamp.max"},
});

constexpr auto kEntryOpcodes = std::to_array<EntryOpcode>({
    {0x40C1C000, 0},
    {0x40C1C200, 1},
    {0x40C20000, 0},
    {0x40C20200, 1},
});
// clang-format on

constexpr uint32_t kSchedBoostOpcode = 0x40C00000;

bool Contains(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

Drive MakeDrive(std::string path) {
    Drive drive;
    const std::string name = path.substr(path.rfind('/') + 1);
    if (Contains(name, "min_") || Contains(name, ".min")) drive.winner = Drive::Winner::kHighest;
    if (Contains(name, "max_") || Contains(name, ".max")) drive.winner = Drive::Winner::kLowest;
    if (name.starts_with("scaling_")) drive.unit = Drive::Unit::kCpuMhz;
    if (Contains(path, "/kgsl-3d0/devfreq/")) drive.unit = Drive::Unit::kGpuMhz;
    drive.path = std::move(path);
    return drive;
}

template <typename Rows>
const typename Rows::value_type* FindTag(const Rows& rows, int tag) {
    for (const auto& row : rows) {
        if (row.tag == tag) return &row;
    }
    return nullptr;
}

// The path of a tag's node, empty when the device has none. A governor node's CPU is literal in the
// plug-in's table; the HAL takes the cluster's.
std::string PathOfTag(int tag, uint32_t opcode, const DeviceProfile& profile) {
    namespace tables = tarquel::node_tables;
    const auto ofCluster = [&](std::string_view suffix) {
        const CpuCluster* const cluster = ClusterOf(opcode, profile);
        return cluster == nullptr ? std::string() : CpuPath(*cluster, suffix);
    };
    if (const auto* row = FindTag(tables::kCpuFreqNodes, tag)) return ofCluster(row->suffix);
    if (const auto* row = FindTag(tables::kOnlineCoreNodes, tag)) return ofCluster(row->suffix);
    if (const auto* row = FindTag(tables::kGovernorNodes, tag)) {
        const size_t suffix = row->path.find('/', tarquel::kCpuPrefix.size());
        if (row->path.ends_with("/online")) return std::string(row->path);
        return ofCluster(row->path.substr(suffix));
    }
    if (const auto* row = FindTag(tables::kGpuNodes, tag)) return std::string(row->path);
    if (const auto* row = FindTag(tables::kCgroupNodes, tag)) return std::string(row->path);
    if (const auto* row = FindTag(tables::kBusNodes, tag)) return std::string(row->path);
    if (const auto* row = FindTag(tables::kSchedNodes, tag)) return std::string(row->path);
    return "";
}

bool HoldsOn(tarquel::TagOpcode::When when, const DeviceProfile& profile) {
    using When = tarquel::TagOpcode::When;
    if (when == When::kTwoClusters) return !profile.HasPrime();
    if (when == When::kThreeClusters) return profile.HasPrime();
    return true;
}

// The tags that use an opcode: those whose row in force has it; if there is none, those that have
// it in a row that another one covers on this device's bus variant.
std::set<int> TagsOf(uint32_t opcode, const DeviceProfile& profile) {
    std::set<int> inForce;
    std::set<int> covered;
    const auto& rows = tarquel::kTagOpcodes;
    for (auto row = rows.begin(); row != rows.end(); ++row) {
        if (row->opcode != opcode || !HoldsOn(row->when, profile)) continue;
        const bool isCovered = std::any_of(row + 1, rows.end(), [&](const auto& later) {
            return later.tag == row->tag && HoldsOn(later.when, profile);
        });
        (isCovered ? covered : inForce).insert(row->tag);
    }
    return inForce.empty() ? covered : inForce;
}

int64_t SnapMhz(uint32_t mhz, bool isMinimum, const std::vector<int64_t>& khz) {
    const auto isBelow = [](int64_t step, int64_t limit) { return step / 1000 < limit; };
    // The first step that reaches the value.
    const auto reached = std::lower_bound(khz.begin(), khz.end(), int64_t{mhz}, isBelow);
    if (isMinimum) return reached == khz.end() ? khz.back() : *reached;
    if (reached != khz.end() && *reached / 1000 == mhz) return *reached;
    return reached == khz.begin() ? khz.front() : *(reached - 1);
}

}  // namespace

const CpuCluster* ClusterOfPath(const std::string& path, const DeviceProfile& profile) {
    for (const CpuCluster& cluster : profile.clusters) {
        if (path.starts_with(CpuPath(cluster, "/"))) return &cluster;
    }
    return nullptr;
}

std::vector<Drive> DrivesOf(uint32_t opcode, const DeviceProfile& profile) {
    for (const ScalingOpcode& row : kScalingOpcodes) {
        if (row.opcode != opcode) continue;
        const CpuCluster* const cluster = profile.FindCluster(row.cluster);
        if (cluster == nullptr) return {};
        Drive drive = MakeDrive(CpuPath(*cluster, tarquel::kScalingMaxSuffix));
        drive.unit = Drive::Unit::kAsIs;
        drive.writer = Kernel::Writer::kHalInPlace;
        return {drive};
    }
    for (const KeyOpcode& row : kKeyOpcodes) {
        if (row.opcode == opcode) return {MakeDrive(std::string(row.path))};
    }
    std::vector<Drive> drives;
    for (const int tag : TagsOf(opcode, profile)) {
        std::string path = PathOfTag(tag, opcode, profile);
        if (path.empty()) continue;
        Drive drive = MakeDrive(std::move(path));
        drive.isCounted = opcode == kSchedBoostOpcode;
        for (const EntryOpcode& row : kEntryOpcodes) {
            if (row.opcode == opcode) drive.entry = row.entry;
        }
        // A node with one number for each boundary has no second one between two clusters.
        if (drive.entry && *drive.entry + 1 >= profile.clusters.size()) continue;
        drives.push_back(std::move(drive));
    }
    return drives;
}

int64_t ToNodeUnit(const Drive& drive, int value, const DeviceProfile& profile) {
    // A negative frequency is the HAL's way to say the highest.
    const auto raised = static_cast<uint32_t>(value);
    if (drive.unit == Drive::Unit::kGpuMhz) return int64_t{raised} * kHzPerMhz;
    if (drive.unit == Drive::Unit::kCpuMhz) {
        const CpuCluster* const cluster = ClusterOfPath(drive.path, profile);
        if (cluster != nullptr) {
            return SnapMhz(raised, drive.winner == Drive::Winner::kHighest, cluster->khz);
        }
    }
    return value;
}

}  // namespace lab

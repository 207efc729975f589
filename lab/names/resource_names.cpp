#include "lab/names/resource_names.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

#include "lab/names/text.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

// A resource's unit follows from a part of its name. The first row that fits counts. CPU frequency
// limits reach the HAL in MHz, scaling limits and buses in kHz.
struct UnitRule {
    std::string_view part;
    Unit unit;
};

// clang-format off
constexpr auto kUnitRules = std::to_array<UnitRule>({
    {"scaling_max_freq",  Unit::kKhz},
    {"_cpu0_min_freq",    Unit::kMhz},
    {"_cpu0_max_freq",    Unit::kMhz},
    {"gpu_min_freq",      Unit::kMhz},
    {"gpu_max_freq",      Unit::kMhz},
    {"ufshc_devfreq_m",   Unit::kHz},
    {"hispeed_freq",      Unit::kKhz},
    {"rtg_boost_freq",    Unit::kKhz},
    {"compute_max_freq",  Unit::kKhz},
    {"bw_min_freq",       Unit::kKhz},
    {"bw_max_freq",       Unit::kKhz},
    {"hwmon_min_freq",    Unit::kKhz},
    {"hwmon_max_freq",    Unit::kKhz},
    {"memlat_min_freq",   Unit::kKhz},
    {"lat_min_freq",      Unit::kKhz},
    {"fas_frame_freq",    Unit::kKhz},
    {"fas_rescue_freq_m", Unit::kKhz},
    {"fas_nojank_freq",   Unit::kKhz},
    {"uclamp_enable",     Unit::kSwitch},
    {"migrate_cost",      Unit::kNone},
    {"migrate_ns",        Unit::kNone},
    {"util_for_uclamp",   Unit::kNone},
    {"uclamp",            Unit::kPercent},
    {"percent",           Unit::kPercent},
    {"_pct",              Unit::kPercent},
    {"hispeed_load",      Unit::kPercent},
    {"_migrate",          Unit::kPercent},
    {"upmigrate",         Unit::kPercent},
    {"downmigrate",       Unit::kPercent},
    {"busy_up_thres",     Unit::kPercent},
    {"busy_down_thres",   Unit::kPercent},
    {"_ms",               Unit::kMs},
    {"online_cpu",        Unit::kCores},
    {"power_level",       Unit::kLevel},
    {"powlevel",          Unit::kLevel},
    {"sched_boost",       Unit::kLevel},
    {"predictive_load",   Unit::kSwitch},
    {"prefer_idle",       Unit::kSwitch},
    {"_enable",           Unit::kSwitch},
    {"_disable",          Unit::kSwitch},
});

constexpr auto kFloorParts = std::to_array<std::string_view>(
    {"min_freq", "uclamp_min", "min_online", "rescue_freq_min"});
constexpr auto kCeilingParts = std::to_array<std::string_view>(
    {"max_freq", "uclamp_max", "max_online", "frame_freq_max", "nojank_freq_max"});
constexpr auto kScalingParts = std::to_array<std::string_view>({"scaling_max_freq"});
// clang-format on

template <typename Parts>
bool HasPart(std::string_view name, const Parts& parts) {
    for (std::string_view part : parts) {
        if (name.find(part) != std::string_view::npos) return true;
    }
    return false;
}

}  // namespace

Resource ResourceOf(int opcode, Layout layout) {
    for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) {
        // With "middle" and "big" both in the table, devices call that cluster "big".
        if (row.opcode != opcode || row.name.substr(0, 7) == "middle_") continue;
        Resource resource{std::string(row.name), Unit::kNone, Bound::kExact};
        for (const UnitRule& rule : kUnitRules) {
            if (row.name.find(rule.part) == std::string_view::npos) continue;
            resource.unit = rule.unit;
            break;
        }
        if (HasPart(row.name, kFloorParts)) resource.bound = Bound::kFloor;
        if (HasPart(row.name, kCeilingParts)) resource.bound = Bound::kCeiling;
        // A boost sets the ceiling itself: it may lift as well as lower it.
        if (HasPart(row.name, kScalingParts)) resource.bound = Bound::kExact;
        return resource;
    }
    if (const std::optional<int> tag = FindOpcodeTag(opcode, layout)) {
        const TagFacts* facts = FindTagFacts(*tag, layout);
        if (facts) return {std::string(facts->name), facts->unit, facts->bound};
    }
    return {Hex(opcode), Unit::kNone, Bound::kExact};
}

std::string RoundingText(const Drive& drive, int value, int64_t nodeValue) {
    const int64_t mhz = nodeValue / 1000;
    if (drive.unit != Drive::Unit::kCpuMhz || mhz == value) return "";
    const bool isFloor = drive.winner == Drive::Winner::kHighest;
    if (isFloor == (mhz < value)) {
        return fmt::format("{} MHz is beyond the device's table: its end counts, {} kHz", value,
                           nodeValue);
    }
    return fmt::format("the device has no step of {} MHz: rounded {} to {} kHz", value,
                       mhz > value ? "up" : "down", nodeValue);
}

}  // namespace lab

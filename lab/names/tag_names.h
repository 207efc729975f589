// The names under which scenarios and reports speak of the plug-in's tags.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

enum class Unit : uint8_t { kNone, kKhz, kMhz, kHz, kPercent, kMs, kCores, kLevel, kSwitch };

// How several values of one resource combine: the highest floor, the lowest ceiling, or whichever
// came last.
enum class Bound : uint8_t { kFloor, kCeiling, kExact, kReadOnly };

// How many clusters the scene file describes: it decides what a tag names.
enum class Layout : uint8_t { kTwoClusters, kThreeClusters };

// A name, the tag that it stands for with two clusters and with three, the unit of its values in
// requests and queries, and what it is in one line.
struct TagFacts {
    std::string_view name;
    int tagTwoClusters;
    int tagThreeClusters;
    Unit unit;
    Bound bound;
    std::string_view meaning;
};
inline constexpr int kNoSuchTag = -1;

inline constexpr int kHighestTag = 133;  // with an opcode or a node
inline constexpr int kControlTypeTag = 57;
inline constexpr int kGroupTag = 98;

inline constexpr int kThermalLevels = 4;

// The value of kControlTypeTag that puts a thermal level in force, from 1, and the level of a
// value; 0 for one that sets none.
constexpr int ControlTypeOf(int thermalLevel) {
    return thermalLevel + 4;
}
constexpr int ThermalLevelOf(int controlType) {
    return controlType >= 5 && controlType <= 8 ? controlType - 4 : 0;
}

// Where several names stand for one tag, the first row that has it in the layout is its name in
// reports; the others are understood too. "big" is the cluster above the little one, "last" the
// highest that there is.
// clang-format off
inline constexpr auto kTagNames = [] {
    using enum Unit;
    using enum Bound;
    constexpr int kNo = kNoSuchTag;
    return std::to_array<TagFacts>({
        {"little_min",               0,   0,   kKhz,     kFloor,    "little cluster's lowest frequency"},
        {"little_max",               1,   1,   kKhz,     kCeiling,  "little cluster's highest frequency"},
        {"little_cur",               2,   2,   kKhz,     kReadOnly, "little cluster's present frequency"},
        {"big_min",                  6,   3,   kKhz,     kFloor,    "big cluster's lowest frequency"},
        {"big_max",                  7,   4,   kKhz,     kCeiling,  "big cluster's highest frequency"},
        {"big_cur",                  8,   5,   kKhz,     kReadOnly, "big cluster's present frequency"},
        {"prime_min",                kNo, 6,   kKhz,     kFloor,    "prime cluster's lowest frequency"},
        {"prime_max",                kNo, 7,   kKhz,     kCeiling,  "prime cluster's highest frequency"},
        {"prime_cur",                kNo, 8,   kKhz,     kReadOnly, "prime cluster's present frequency"},
        {"mid_min",                  kNo, 3,   kKhz,     kFloor,    "middle cluster's lowest frequency"},
        {"mid_max",                  kNo, 4,   kKhz,     kCeiling,  "middle cluster's highest frequency"},
        {"mid_cur",                  kNo, 5,   kKhz,     kReadOnly, "middle cluster's present frequency"},
        {"last_min",                 6,   6,   kKhz,     kFloor,    "last cluster's lowest frequency"},
        {"last_max",                 7,   7,   kKhz,     kCeiling,  "last cluster's highest frequency"},
        {"last_cur",                 8,   8,   kKhz,     kReadOnly, "last cluster's present frequency"},
        {"gpu_min",                  9,   9,   kHz,      kFloor,    "GPU's lowest frequency"},
        {"gpu_max",                  10,  10,  kHz,      kCeiling,  "GPU's highest frequency"},
        {"gpu_cur",                  11,  11,  kHz,      kReadOnly, "GPU's present frequency"},
        {"ipa_switch_temp",          40,  40,  kNone,    kExact,    "power allocator's switch temperature: arbitrated, then refused for want of an opcode"},
        {"ipa_sustainable_power",    41,  41,  kNone,    kExact,    "power allocator's sustainable power: arbitrated, then refused for want of an opcode"},
        {"little_hw_min",            43,  43,  kKhz,     kReadOnly, "little cluster's hardware minimum"},
        {"little_hw_max",            44,  44,  kKhz,     kReadOnly, "little cluster's hardware maximum"},
        {"big_hw_min",               47,  45,  kKhz,     kReadOnly, "big cluster's hardware minimum"},
        {"big_hw_max",               48,  46,  kKhz,     kReadOnly, "big cluster's hardware maximum"},
        {"prime_hw_min",             kNo, 47,  kKhz,     kReadOnly, "prime cluster's hardware minimum"},
        {"prime_hw_max",             kNo, 48,  kKhz,     kReadOnly, "prime cluster's hardware maximum"},
        {"gpu_default_min",          49,  49,  kHz,      kReadOnly, "GPU's minimum as it was at start"},
        {"gpu_default_max",          50,  50,  kHz,      kReadOnly, "GPU's maximum as it was at start"},
        {"control_type",             57,  57,  kNone,    kExact,    "who owns the limits and the thermal level, 0 to 10"},
        {"little_cores_max",         61,  61,  kCores,   kCeiling,  "little cores that may be online"},
        {"big_cores_max",            63,  62,  kCores,   kCeiling,  "big cores that may be online"},
        {"prime_cores_max",          kNo, 63,  kCores,   kCeiling,  "prime cores that may be online"},
        {"little_cores_min",         64,  64,  kCores,   kFloor,    "little cores that stay online"},
        {"big_cores_min",            66,  65,  kCores,   kFloor,    "big cores that stay online"},
        {"prime_cores_min",          kNo, 66,  kCores,   kFloor,    "prime cores that stay online"},
        {"gpu_min_power_level",      67,  67,  kLevel,   kExact,    "GPU's lowest power level (0 is the fastest)"},
        {"gpu_max_power_level",      68,  68,  kLevel,   kExact,    "GPU's highest power level (0 is the fastest)"},
        {"uclamp_fg_min",            69,  69,  kPercent, kFloor,    "foreground tasks' least utilisation"},
        {"uclamp_fg_max",            70,  70,  kPercent, kCeiling,  "foreground tasks' greatest utilisation"},
        {"uclamp_bg_min",            71,  71,  kPercent, kFloor,    "background tasks' least utilisation"},
        {"uclamp_bg_max",            72,  72,  kPercent, kCeiling,  "background tasks' greatest utilisation"},
        {"llcc_bw_min",              81,  81,  kKhz,     kFloor,    "last-level cache's lowest frequency, bandwidth monitor"},
        {"llcc_bw_max",              82,  82,  kKhz,     kCeiling,  "last-level cache's highest frequency, bandwidth monitor"},
        {"ddr_bw_min",               83,  83,  kKhz,     kFloor,    "memory's lowest frequency, bandwidth monitor"},
        {"ddr_bw_max",               84,  84,  kKhz,     kCeiling,  "memory's highest frequency, bandwidth monitor"},
        {"l3_min",                   85,  85,  kKhz,     kFloor,    "L3 cache's lowest frequency, prime latency monitor"},
        {"hispeed_freq_cpu4",        87,  87,  kKhz,     kExact,    "frequency to jump to under load, CPU 4's cluster"},
        {"hispeed_freq_cpu0",        88,  88,  kKhz,     kExact,    "frequency to jump to under load, CPU 0's cluster"},
        {"hispeed_freq_cpu7",        kNo, 89,  kKhz,     kExact,    "frequency to jump to under load, CPU 7's cluster"},
        {"hispeed_load_cpu4",        90,  90,  kPercent, kExact,    "load that makes CPU 4's cluster jump"},
        {"hispeed_load_cpu0",        91,  91,  kPercent, kExact,    "load that makes CPU 0's cluster jump"},
        {"hispeed_load_cpu7",        kNo, 92,  kPercent, kExact,    "load that makes CPU 7's cluster jump"},
        {"sched_upmigrate",          93,  93,  kPercent, kExact,    "load above which a task moves up"},
        {"sched_upmigrate_prime",    94,  94,  kPercent, kExact,    "load above which a task moves to the prime cluster"},
        {"sched_downmigrate",        95,  95,  kPercent, kExact,    "load below which a task moves down"},
        {"sched_downmigrate_prime",  96,  96,  kPercent, kExact,    "load below which a task leaves the prime cluster"},
        {"sched_boost",              97,  97,  kLevel,   kExact,    "scheduler boost: 1 full, 2 conservative, 3 restrained"},
        {"group",                    98,  98,  kMs,      kExact,    "group marker: its value is the group's duration"},
        {"rtg_boost_freq_cpu4",      99,  99,  kKhz,     kExact,    "frequency for related threads, CPU 4's cluster"},
        {"rtg_boost_freq_cpu0",      100, 100, kKhz,     kExact,    "frequency for related threads, CPU 0's cluster"},
        {"rtg_boost_freq_cpu7",      kNo, 101, kKhz,     kExact,    "frequency for related threads, CPU 7's cluster"},
        {"target_load_thresh_cpu4",  102, 102, kNone,    kExact,    "utilisation from which headroom shrinks, CPU 4's cluster"},
        {"target_load_thresh_cpu0",  103, 103, kNone,    kExact,    "utilisation from which headroom shrinks, CPU 0's cluster"},
        {"target_load_thresh_cpu7",  kNo, 104, kNone,    kExact,    "utilisation from which headroom shrinks, CPU 7's cluster"},
        {"target_load_shift_cpu4",   105, 105, kNone,    kExact,    "headroom as a shift, CPU 4's cluster"},
        {"target_load_shift_cpu0",   106, 106, kNone,    kExact,    "headroom as a shift, CPU 0's cluster"},
        {"target_load_shift_cpu7",   kNo, 107, kNone,    kExact,    "headroom as a shift, CPU 7's cluster"},
        {"llcc_hist_memory",         108, 108, kNone,    kExact,    "last-level cache monitor's memory of past windows"},
        {"llcc_hyst_trigger_count",  109, 109, kNone,    kExact,    "last-level cache monitor's hysteresis trigger"},
        {"llcc_hyst_length",         110, 110, kNone,    kExact,    "last-level cache monitor's hysteresis length"},
        {"llcc_sample_ms",           111, 111, kMs,      kExact,    "last-level cache monitor's window"},
        {"llcc_io_percent",          112, 112, kPercent, kExact,    "last-level cache monitor's target use"},
        {"llcc_gold_compute_max",    113, 113, kKhz,     kCeiling,  "last-level cache's ceiling for computing threads"},
        {"ddr_hist_memory",          114, 114, kNone,    kExact,    "memory monitor's memory of past windows"},
        {"ddr_hyst_trigger_count",   115, 115, kNone,    kExact,    "memory monitor's hysteresis trigger"},
        {"ddr_hyst_length",          116, 116, kNone,    kExact,    "memory monitor's hysteresis length"},
        {"ddr_sample_ms",            117, 117, kMs,      kExact,    "memory monitor's window"},
        {"ddr_io_percent",           118, 118, kPercent, kExact,    "memory monitor's target use"},
        {"ddr_gold_compute_max",     119, 119, kKhz,     kCeiling,  "memory's ceiling for computing threads"},
        {"sched_window_ticks",       120, 120, kNone,    kExact,    "scheduler's load window in ticks"},
        {"predictive_load_cpu4",     121, 121, kSwitch,  kExact,    "predicted load counts, CPU 4's cluster"},
        {"predictive_load_cpu0",     122, 122, kSwitch,  kExact,    "predicted load counts, CPU 0's cluster"},
        {"predictive_load_cpu7",     kNo, 123, kSwitch,  kExact,    "predicted load counts, CPU 7's cluster"},
        {"cpu7_online",              kNo, 124, kSwitch,  kExact,    "CPU 7 is online"},
        {"ipa_power_target",         130, 130, kNone,    kExact,    "power allocator's target"},
        {"ipa_power_range",          131, 131, kNone,    kExact,    "power allocator's range"},
        {"asymcap_boost",            132, 132, kSwitch,  kExact,    "boost on clusters of unlike capacity"},
        {"thermal_gpu_power_level",  133, 133, kLevel,   kExact,    "GPU power level that the thermal policy allows"},
    });
}();
// clang-format on

// The row that names `tag` in reports, or null for a tag without a name.
const TagFacts* FindTagFacts(int tag, Layout layout);

// The name of `tag`, "tag 12" when it has none.
std::string TagLabel(int tag, Layout layout);

// The tag called `name`: a name of the table, a scene file's name of a tag ("big_cpu0_max_freq") or
// a number (decimal or 0x). Nothing when there is none, or when the layout does not have it.
std::optional<int> FindTag(const std::string& name, Layout layout);

// The tag that a long scene's key names; nothing when there is none, or the layout does not have
// it.
std::optional<int> FindSceneTag(std::string_view key, Layout layout);

// The names that the layout has, in the table's order.
std::vector<std::string> TagNamesOf(Layout layout);

// The perf-HAL opcode of `tag`, as the plug-in's table gives it; nothing for a tag without one.
std::optional<int> FindTagOpcode(int tag, Layout layout);

// The tag whose opcode is `opcode`; the lowest when several share it.
std::optional<int> FindOpcodeTag(int opcode, Layout layout);

// What the perf HAL gets for `value` of `tag`: MHz for frequencies of clusters and the GPU.
int HalValue(int tag, int value);

// `value` as a reader wants it: kHz and Hz as MHz, the rest with its unit.
std::string WithUnit(int64_t value, Unit unit);

// "kHz", "%", "cores"; empty for none.
std::string_view UnitName(Unit unit);

// "1440 MHz" preceded by ">=", "<=" or "=".
std::string BoundText(Bound bound, int64_t value, Unit unit);

}  // namespace lab

// The nodes of the interactive governor: the config key that scene files use and its node.
#pragma once

#include <array>
#include <string_view>

namespace tarquel {

// "_l" is the little cluster (CPU 0), "_b" the big one (CPU 4). Paths end with a null character.
struct InterPath {
    std::string_view key;
    const char* path;
};

// clang-format off
inline constexpr auto kInterPaths = std::to_array<InterPath>({
    {"go_hispeed_load_l",     "/sys/devices/system/cpu/cpu0/cpufreq/interactive/go_hispeed_load"},
    {"hispeed_freq_l",        "/sys/devices/system/cpu/cpu0/cpufreq/interactive/hispeed_freq"},
    {"target_load_freq_l",    "/sys/devices/system/cpu/cpu0/cpufreq/interactive/target_loads"},
    {"above_hispeed_delay_l", "/sys/devices/system/cpu/cpu0/cpufreq/interactive/hispeed_delay"},
    {"min_sample_time_l",     "/sys/devices/system/cpu/cpu0/cpufreq/interactive/min_sample_time"},
    {"go_hispeed_load_b",     "/sys/devices/system/cpu/cpu4/cpufreq/interactive/go_hispeed_load"},
    {"hispeed_freq_b",        "/sys/devices/system/cpu/cpu4/cpufreq/interactive/hispeed_freq"},
    {"target_load_freq_b",    "/sys/devices/system/cpu/cpu4/cpufreq/interactive/target_loads"},
    {"above_hispeed_delay_b", "/sys/devices/system/cpu/cpu4/cpufreq/interactive/hispeed_delay"},
    {"min_sample_time_b",     "/sys/devices/system/cpu/cpu4/cpufreq/interactive/min_sample_time"},
});
// clang-format on

// The node of an interactive-governor key, or null.
constexpr const char* FindInterPath(std::string_view key) {
    for (const InterPath& row : kInterPaths) {
        if (row.key == key) return row.path;
    }
    return nullptr;
}

}  // namespace tarquel

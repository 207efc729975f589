// Which perf-HAL opcode stands for each tag.
#pragma once

#include <array>
#include <cstdint>

namespace tarquel {

// A tag, the perf-HAL resource opcode for it and the devices on which the row counts. Bits 8 to 11
// of a per-cluster opcode select the cluster: 0x000 big (the middle one of three), 0x100 little,
// 0x200 prime; with two clusters the last cluster's tags use the big opcodes.
struct TagOpcode {
    enum class When : uint8_t { kAlways, kBusVariant1, kTwoClusters, kThreeClusters };

    int tag;
    uint32_t opcode;
    When when;
};

// A later row wins over an earlier one of its tag. Tags that can only be read (current frequencies,
// cpuinfo limits, GPU clocks) have no row. Tag 82 has none without bus variant 1: that is meant.
// clang-format off
inline constexpr auto kTagOpcodes = [] {
    using When = TagOpcode::When;
    return std::to_array<TagOpcode>({
        {68,  0x42808000, When::kAlways},       
        {67,  0x42804000, When::kAlways},       
        {10,  0x42810000, When::kAlways},         // GPU devfreq/max_freq
        {9,   0x4280C000, When::kAlways},         // GPU devfreq/min_freq
        {97,  0x40C00000, When::kAlways},         // /proc/sys/walt/sched_boost
        {93,  0x40C1C000, When::kAlways},         // /proc/sys/walt/sched_upmigrate
        {94,  0x40C1C200, When::kAlways},         // /proc/sys/walt/sched_upmigrate (second entry)
        {95,  0x40C20000, When::kAlways},         // /proc/sys/walt/sched_downmigrate
        {96,  0x40C20200, When::kAlways},         // /proc/sys/walt/sched_downmigrate (second entry)
        {120, 0x40CA4000, When::kAlways},         // /proc/sys/walt/sched_ravg_window_nr_ticks
        {69,  0x44400000, When::kAlways},         // foreground cpu.uclamp.min
        {70,  0x44404000, When::kAlways},         // foreground cpu.uclamp.max
        {71,  0x4440C000, When::kAlways},         // background cpu.uclamp.min
        {72,  0x44410000, When::kAlways},         // background cpu.uclamp.max
        {81,  0x41828000, When::kAlways},         // LLCC bandwidth monitor min_freq
        {81,  0x41844000, When::kBusVariant1},    // LLCC bandwidth monitor min_freq
        {82,  0x41848000, When::kBusVariant1},    // LLCC bandwidth monitor max_freq
        {108, 0x4184C000, When::kAlways},         // LLCC hist_memory
        {109, 0x41850000, When::kAlways},         // LLCC hyst_trigger_count
        {110, 0x41854000, When::kAlways},         // LLCC hyst_length
        {111, 0x4183C000, When::kAlways},         // LLCC sample_ms
        {112, 0x41834000, When::kAlways},         // LLCC io_percent
        {113, 0x43400000, When::kAlways},         // LLCC memory-latency gold-compute max_freq
        {83,  0x43010000, When::kAlways},         // DDR bandwidth monitor min_freq
        {83,  0x4303C000, When::kBusVariant1},    // DDR bandwidth monitor min_freq
        {84,  0x43018000, When::kAlways},         // DDR bandwidth monitor max_freq
        {84,  0x43040000, When::kBusVariant1},    // DDR bandwidth monitor max_freq
        {114, 0x4304C000, When::kAlways},         // DDR hist_memory
        {115, 0x43050000, When::kAlways},         // DDR hyst_trigger_count
        {116, 0x43054000, When::kAlways},         // DDR hyst_length
        {117, 0x43034000, When::kAlways},         // DDR sample_ms
        {118, 0x43020000, When::kAlways},         // DDR io_percent
        {119, 0x43400000, When::kAlways},         // DDR memory-latency gold-compute max_freq
        {85,  0x43400000, When::kAlways},         // L3 memory-latency prime min_freq
        {85,  0x43458000, When::kBusVariant1},    // L3 memory-latency prime min_freq
        {87,  0x4143C000, When::kAlways},         // CPU 4 walt hispeed_freq
        {88,  0x4143C100, When::kAlways},         // CPU 0 walt hispeed_freq
        {90,  0x41440000, When::kAlways},         // CPU 4 walt hispeed_load
        {91,  0x41440100, When::kAlways},         // CPU 0 walt hispeed_load
        {99,  0x4144C000, When::kAlways},         // CPU 4 walt rtg_boost_freq
        {100, 0x4144C100, When::kAlways},         // CPU 0 walt rtg_boost_freq
        {102, 0x41450000, When::kAlways},         // CPU 4 walt target_load_thresh
        {103, 0x41450100, When::kAlways},         // CPU 0 walt target_load_thresh
        {105, 0x41454000, When::kAlways},         // CPU 4 walt target_load_shift
        {106, 0x41454100, When::kAlways},         // CPU 0 walt target_load_shift
        {121, 0x41444000, When::kAlways},         // CPU 4 walt pl
        {122, 0x41444100, When::kAlways},         // CPU 0 walt pl
        {61,  0x41004100, When::kAlways},         // little cluster /core_ctl/max_cpus
        {64,  0x41000100, When::kAlways},         // little cluster /core_ctl/min_cpus
        {1,   0x40804100, When::kAlways},         // little cluster /cpufreq/scaling_max_freq
        {0,   0x40800100, When::kAlways},         // little cluster /cpufreq/scaling_min_freq
        {62,  0x41004000, When::kThreeClusters},  // middle cluster /core_ctl/max_cpus
        {65,  0x41000000, When::kThreeClusters},  // middle cluster /core_ctl/min_cpus
        {63,  0x41004200, When::kThreeClusters},  // last cluster /core_ctl/max_cpus
        {63,  0x41004000, When::kTwoClusters},    // last cluster /core_ctl/max_cpus
        {66,  0x41000200, When::kThreeClusters},  // last cluster /core_ctl/min_cpus
        {66,  0x41000000, When::kTwoClusters},    // last cluster /core_ctl/min_cpus
        {4,   0x40804000, When::kThreeClusters},  // middle cluster /cpufreq/scaling_max_freq
        {3,   0x40800000, When::kThreeClusters},  // middle cluster /cpufreq/scaling_min_freq
        {7,   0x40804200, When::kThreeClusters},  // last cluster /cpufreq/scaling_max_freq
        {7,   0x40804000, When::kTwoClusters},    // last cluster /cpufreq/scaling_max_freq
        {6,   0x40800200, When::kThreeClusters},  // last cluster /cpufreq/scaling_min_freq
        {6,   0x40800000, When::kTwoClusters},    // last cluster /cpufreq/scaling_min_freq
        {89,  0x4143C200, When::kThreeClusters},  // CPU 7 walt hispeed_freq
        {92,  0x41440200, When::kThreeClusters},  // CPU 7 walt hispeed_load
        {101, 0x4144C200, When::kThreeClusters},  // CPU 7 walt rtg_boost_freq
        {104, 0x41450200, When::kThreeClusters},  // CPU 7 walt target_load_thresh
        {107, 0x41454200, When::kThreeClusters},  // CPU 7 walt target_load_shift
        {123, 0x41444200, When::kThreeClusters},  // CPU 7 walt pl
        {124, 0x41020000, When::kThreeClusters},  // /sys/devices/system/cpu/cpu7/online
        {130, 0x44808000, When::kAlways},       
        {131, 0x4480C000, When::kAlways},       
        {133, 0x44810000, When::kAlways},       
        {132, 0x43C00000, When::kAlways},       
    });
}();
// clang-format on

}  // namespace tarquel

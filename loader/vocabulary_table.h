// The vocabulary of scene files: every tunable's key with its perf-HAL opcode.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace tarquel {

// A key of a scene file and the perf-HAL resource opcode that it stands for.
struct OpcodeName {
    std::string_view name;
    int32_t opcode;
};

// The keys in force with bus layout 1, by family. Keys are unique; two keys may share an opcode.
// clang-format off
inline constexpr auto kOpcodeNames = std::to_array<OpcodeName>({
    // Low-power modes.
    {"power_collapse",                           0x40400000},
    {"power_collapse_perf",                      0x40404000},
    {"lpm_bias_hyst",                            0x40408000},
    {"lpm_levels_ref_stddev",                    0x4040C000},
    {"lpm_levels_tmr_add",                       0x40410000},
    {"lpm_ipi_prediction",                       0x40414000},
    // CPU frequency limits, kHz in scene files. "big" and "middle" name one opcode.
    {"little_cpu0_min_freq",                     0x40800100},
    {"little_cpu0_max_freq",                     0x40804100},
    {"middle_cpu0_min_freq",                     0x40800000},
    {"middle_cpu0_max_freq",                     0x40804000},
    {"big_cpu0_min_freq",                        0x40800000},
    {"big_cpu0_max_freq",                        0x40804000},
    {"prime_cpu0_min_freq",                      0x40800200},
    {"prime_cpu0_max_freq",                      0x40804200},
    {"little_cpu0_scaling_max_freq",             0x40810000},
    {"big_cpu0_scaling_max_freq",                0x40814000},
    {"prime_cpu0_scaling_max_freq",              0x40818000},
    // GPU.
    {"gpu_power_level",                          0x42800000},
    {"gpu_min_power_level",                      0x42804000},
    {"gpu_max_power_level",                      0x42808000},
    {"gpu_min_freq",                             0x4280C000},
    {"gpu_max_freq",                             0x42810000},
    {"gpu_disable_gpu_nap",                      0x4281C000},
    // Scheduler.
    {"sched_boost",                              0x40C00000},
    {"sched_prefer_idle",                        0x40C04000},
    {"sched_migrate_cost",                       0x40C08000},
    {"sched_small_task",                         0x40C0C000},
    {"sched_up_migrate",                         0x40C1C000},
    {"sched_up_migrate_prime",                   0x40C1C200},
    {"sched_down_migrate",                       0x40C20000},
    {"sched_down_migrate_prime",                 0x40C20200},
    {"sched_spill_nr_run",                       0x40C2C000},
    {"sched_restrict_cluster_spill",             0x40C34000},
    {"sched_cpuset_top_app",                     0x40C3C000},
    {"sched_cpuset_foreground",                  0x40C40000},
    {"sched_cpuset_system_background",           0x40C44000},
    {"sched_cpuset_background",                  0x40C48000},
    {"sched_group_upmigrate",                    0x40C54000},
    {"sched_group_downmigrate",                  0x40C58000},
    {"sched_freq_aggr_threshold",                0x40C5C000},
    {"sched_load_boost_big",                     0x40C68000},
    {"sched_load_boost_little",                  0x40C68100},
    {"sched_load_boost_prime",                   0x40C68200},
    {"ta_prefer_idle",                           0x40CE8000},
    {"fg_prefer_idle",                           0x40CEC000},
    // cpu-controller groups.
    {"cpuctl_fg_uclamp_min",                     0x44400000},
    {"cpuctl_fg_uclamp_max",                     0x44404000},
    {"cpuctl_fg_cpu_shares",                     0x44408000},
    {"cpuctl_bg_uclamp_min",                     0x4440C000},
    {"cpuctl_bg_uclamp_max",                     0x44410000},
    {"cpuctl_bg_cpu_shares",                     0x44414000},
    {"cpuctl_boost_uclamp_min",                  0x44418000},
    {"cpuctl_boost_uclamp_max",                  0x4441C000},
    {"cpuctl_boost_cpu_shares",                  0x44420000},
    {"cpuctl_vip_uclamp_min",                    0x44424000},
    {"cpuctl_vip_uclamp_max",                    0x44428000},
    {"cpuctl_vip_cpu_shares",                    0x4442C000},
    {"cpuctl_topapp_uclamp_min",                 0x44430000},
    {"cpuctl_topapp_uclamp_max",                 0x44434000},
    {"cpuctl_topapp_cpu_shares",                 0x44438000},
    {"cpuctl_graphic_uclamp_min",                0x4443C000},
    {"cpuctl_graphic_uclamp_max",                0x44440000},
    {"cpuctl_graphic_cpu_shares",                0x44444000},
    {"cpuctl_system_uclamp_min",                 0x44448000},
    {"cpuctl_system_uclamp_max",                 0x4444C000},
    {"cpuctl_system_cpu_shares",                 0x44450000},
    {"cpuctl_sysbg_uclamp_min",                  0x44454000},
    {"cpuctl_sysbg_uclamp_max",                  0x44458000},
    {"cpuctl_sysbg_cpu_shares",                  0x4445C000},
    {"cpuctl_keybg_uclamp_min",                  0x44460000},
    {"cpuctl_keybg_uclamp_max",                  0x44464000},
    {"cpuctl_keybg_cpu_shares",                  0x44468000},
    // cpusets.
    {"fg_cpuset",                                0x4446C000},
    {"bg_cpuset",                                0x44470000},
    {"boost_cpuset",                             0x44474000},
    {"vip_cpuset",                               0x44478000},
    {"topapp_cpuset",                            0x4447C000},
    {"graphic_cpuset",                           0x44480000},
    {"system_cpuset",                            0x44484000},
    {"sysbg_cpuset",                             0x44488000},
    {"keybg_cpuset",                             0x4448C000},
    // Task placement.
    {"vip_prefer_big_core",                      0x45000000},
    {"per_task_uclamp_enable",                   0x45004000},
    {"sched_em_inflate_pct",                     0x45008000},
    {"sched_em_inflate_thres",                   0x4500C000},
    {"load_grp_pct_l",                           0x45010000},
    {"load_grp_pct_m",                           0x45014000},
    {"load_grp_pct_h",                           0x45018000},
    {"load_grp_pct_v",                           0x4501C000},
    {"aisched_enable",                           0x45020000},
    // Storage.
    {"ufshc_devfreq_min_freq",                   0x44C00000},
    {"ufshc_devfreq_max_freq",                   0x44C04000},
    {"ufshc_devfreq_polling_interval",           0x44C08000},
    {"ufshc_clkscale_enable",                    0x44C0C000},
    {"ufshc_devfreq_governor",                   0x44C10000},
    {"ufshc_devfreq_trans_stat",                 0x44C14000},
    {"ufshc_devfreq_uevent",                     0x44C18000},
    {"ufshc_qcom_irq_affinity",                  0x44C1C000},
    // Power allocator and thermal.
    {"board_ipa_mode",                           0x44800000},
    {"board_ipa_weight",                         0x44804000},
    {"ipa_power_target",                         0x44808000},
    {"ipa_power_range",                          0x4480C000},
    {"thermal_gpu_powlevel",                     0x44810000},
    // Scheduler tuning. "schedtune_boost" and "top_app" name one opcode.
    {"schedtune_prefer_idle",                    0x40C60000},
    {"schedtune_boost",                          0x40C70000},
    {"top_app",                                  0x40C70000},
    {"sched_busy_hystersis_cpu_mask",            0x40C74000},
    {"sched_min_task_util_for_colocation",       0x40C78000},
    {"sched_min_task_util_for_boost",            0x40C7C000},
    {"sched_task_boost",                         0x40C80000},
    {"sched_coloc_downmigrate_ns",               0x40C8C000},
    {"sched_sync_hint_enable",                   0x40CA0000},
    {"sched_window_ticks_update",                0x40CA4000},
    {"sched_prefer_spread",                      0x40CA8000},
    {"sched_uclamp_boost",                       0x40CAC000},
    {"walt_rtg_cfs_boost_prio",                  0x40CC8000},
    {"walt_low_latency_task_threshold",          0x40CD8000},
    {"sched_min_task_util_for_uclamp",           0x40CFC000},
    {"task_affinity",                            0x4101C000},
    {"sched_asymcap_boost",                      0x43C00000},
    // Frame-aware scheduling.
    {"fas_freq_boost",                           0x44000000},
    {"fas_freq_boost_opp",                       0x44004000},
    {"fas_heavy_task_num",                       0x44008000},
    {"fas_rescue_freq_boost",                    0x4400C000},
    {"fas_rescue_percent",                       0x44010000},
    {"fas_frame_freq_max_cluster0",              0x44014000},
    {"fas_frame_freq_max_cluster1",              0x44018000},
    {"fas_frame_freq_max_cluster2",              0x4401C000},
    {"fas_freq_boost_cluster0",                  0x44020000},
    {"fas_freq_boost_cluster1",                  0x44024000},
    {"fas_freq_boost_cluster2",                  0x44028000},
    {"fas_freq_boost_opp_cluster0",              0x4402C000},
    {"fas_freq_boost_opp_cluster1",              0x44030000},
    {"fas_freq_boost_opp_cluster2",              0x44034000},
    {"fas_rescue_freq_min_cluster0",             0x44038000},
    {"fas_rescue_freq_min_cluster1",             0x4403C000},
    {"fas_rescue_freq_min_cluster2",             0x44040000},
    {"fas_enable",                               0x44044000},
    {"fas_lcd_fps_sure",                         0x44048000},
    {"fas_rboost_enable",                        0x4404C000},
    {"fas_uboost_enable",                        0x44050000},
    {"fas_uiboost_ms_60fps",                     0x44054000},
    {"fas_uiboost_ms_90fps",                     0x44058000},
    {"fas_uiboost_ms_120fps",                    0x4405C000},
    {"fas_anim_boost_enable",                    0x44060000},
    {"fas_anim_boost_ms",                        0x44064000},
    {"fas_uiboost_uclamp_min",                   0x44068000},
    {"fas_frame_uclamp_min",                     0x4406C000},
    {"fas_webview_active_time",                  0x44070000},
    {"fas_performance_mode",                     0x44074000},
    {"fas_update_uclamp_max",                    0x44078000},
    {"fas_update_util_fling",                    0x4407C000},
    {"fas_nojank_freq_max_cluster0",             0x44080000},
    {"fas_nojank_freq_max_cluster1",             0x44084000},
    {"fas_nojank_freq_max_cluster2",             0x44088000},
    {"fas_freq_limit_enable",                    0x4408C000},
    // Core control.
    {"min_online_cpu_cluster_big",               0x41000000},
    {"min_online_cpu_cluster_little",            0x41000100},
    {"min_online_cpu_cluster_prime",             0x41000200},
    {"max_online_cpu_cluster_big",               0x41004000},
    {"max_online_cpu_cluster_little",            0x41004100},
    {"max_online_cpu_cluster_prime",             0x41004200},
    {"core_ctl_cpu4_busy_up_thres",              0x41024000},
    {"core_ctl_cpu7_busy_up_thres",              0x41028000},
    {"core_ctl_cpu4_busy_down_thres",            0x4102C000},
    {"core_ctl_cpu7_busy_down_thres",            0x41030000},
    {"core_ctl_nr_prev_assist_thresh_little",    0x41034000},
    {"core_ctl_nr_prev_assist_thresh_big",       0x41038000},
    {"core_ctl_nr_prev_assist_thresh_prime",     0x4103C000},
    {"core_ctl_offline_delay_ms_little",         0x41040000},
    {"core_ctl_offline_delay_ms_big",            0x41044000},
    {"core_ctl_offline_delay_ms_prime",          0x41048000},
    {"core_ctl_task_thres_little",               0x4104C000},
    {"core_ctl_task_thres_big",                  0x41050000},
    {"core_ctl_task_thres_prime",                0x41054000},
    {"core_ctl_enable_little",                   0x41008100},
    {"core_ctl_enable_big",                      0x41008000},
    // Governor, per cluster.
    {"schedutil_hispeed_freq_cluster_big",       0x4143C000},
    {"schedutil_hispeed_freq_cluster_little",    0x4143C100},
    {"schedutil_hispeed_freq_cluster_prime",     0x4143C200},
    {"schedutil_hispeed_load_cluster_big",       0x41440000},
    {"schedutil_hispeed_load_cluster_little",    0x41440100},
    {"schedutil_hispeed_load_cluster_prime",     0x41440200},
    {"schedutil_predictive_load_cluster_big",    0x41444000},
    {"schedutil_predictive_load_cluster_little", 0x41444100},
    {"schedutil_predictive_load_cluster_prime",  0x41444200},
    {"schedutil_down_rate_limit_cluster_big",    0x41448000},
    {"schedutil_down_rate_limit_cluster_little", 0x41448100},
    {"schedutil_down_rate_limit_cluster_prime",  0x41448200},
    {"schedutil_rtg_boost_freq_cluster_big",     0x4144C000},
    {"schedutil_rtg_boost_freq_cluster_little",  0x4144C100},
    {"schedutil_rtg_boost_freq_cluster_prime",   0x4144C200},
    {"target_load_thresh_big",                   0x41450000},
    {"target_load_thresh_little",                0x41450100},
    {"target_load_thresh_prime",                 0x41450200},
    {"target_load_shift_big",                    0x41454000},
    {"target_load_shift_little",                 0x41454100},
    {"target_load_shift_prime",                  0x41454200},
    {"up_rate_limit_cluster_big",                0x41458000},
    {"up_rate_limit_cluster_little",             0x41458100},
    {"up_rate_limit_cluster_prime",              0x41458200},
    // Bus, LLCC and DDR bandwidth.
    {"cpubw_hwmon_min_freq",                     0x41800000},
    {"cpubw_hwmon_max_freq",                     0x41818000},
    {"cpu_llcc_bw_min_freq",                     0x41844000},
    {"cpu_llcc_bw_max_freq",                     0x41848000},
    {"cpu_llcc_bw_hyst_opt",                     0x41838000},
    {"cpu_llcc_bw_sample_ms",                    0x4183C000},
    {"cpu_llcc_bw_io_percent",                   0x41834000},
    {"cpu_llcc_bw_hist_memory",                  0x4184C000},
    {"cpu_llcc_bw_hyst_trigger_count",           0x41850000},
    {"cpu_llcc_bw_hyst_length",                  0x41854000},
    // Memory and task odds and ends.
    {"storage_clk_scaling_disable",              0x42C10000},
    {"disable_pasr",                             0x42C1C000},
    {"pid_affine",                               0x42C20000},
    // LLCC and DDR monitors.
    {"llcbw_hwmon_min_freq",                     0x43000000},
    {"llcc_ddr_bw_min_freq",                     0x4303C000},
    {"llcc_ddr_bw_max_freq",                     0x43040000},
    {"llcc_ddr_bw_hyst_opt",                     0x43024000},
    {"llcc_ddr_bw_sample_ms",                    0x43034000},
    {"llcc_ddr_bw_io_percent",                   0x43020000},
    {"llcc_ddr_bw_hist_memory",                  0x4304C000},
    {"llcc_ddr_bw_hyst_trigger_count",           0x43050000},
    {"llcc_ddr_bw_hyst_length",                  0x43054000},
    // Memory latency.
    {"l3_memlat_min_freq",                       0x43458000},
    {"memlat_min_freq_0",                        0x43414000},
    {"memlat_min_freq_1",                        0x43418000},
    {"llcc_memlat_min_freq",                     0x4341C000},
    {"llcc_ddr_lat_min_freq_0",                  0x43430000},
    {"llcc_ddr_lat_min_freq_1",                  0x43430100},
    {"llcc_memlat_ratio_cell_0",                 0x43420000},
    {"llcc_memlat_ratio_cell_1",                 0x43424000},
    {"llcc_ddr_lat_ratio_cell_0",                0x43434000},
    {"llcc_ddr_lat_ratio_cell_1",                0x43438000},
    {"llcc_gold_compute_max_freq",               0x43470000},
    {"ddr_gold_compute_max_freq",                0x4346C000},
    {"llcc_ddr_adaptive_high_freq",              0x43478000},
    {"llcc_ddr_adaptive_low_freq",               0x4347C000},
    {"ddr_prime_freq_scale_pct",                 0x434A8000},
    {"llcc_gold_freq_scale_pct",                 0x434AC000},
    {"l3_gold_freq_scale_pct",                   0x434B0000},
    {"l3_prime_freq_scale_pct",                  0x434B4000},
    // Boosts of one core and of L3. "hmp" is no opcode of the HAL's ranges; it is passed on all the same.
    {"silver_core_boost",                        0x4081C000},
    {"l3_boost",                                 0x40820000},
    {"hmp",                                      0x00000032},
});

// What the bus keys stand for in the other bus layout, which lacks kOnlyInBusLayout1. No device has
// it: the reference pages alone tell of it.
inline constexpr auto kOtherBusLayoutNames = std::to_array<OpcodeName>({
    {"cpu_llcc_bw_min_freq", 0x41828000},
    {"llcc_ddr_bw_min_freq", 0x43010000},
    {"llcc_ddr_bw_max_freq", 0x43018000},
    {"l3_memlat_min_freq",   0x43400000},
});
inline constexpr std::string_view kOnlyInBusLayout1 = "cpu_llcc_bw_max_freq";

// Opcodes whose values are kHz in scene files and MHz for the HAL.
inline constexpr auto kFrequencyOpcodes = std::to_array<int32_t>({
    0x40800100,  // little cluster, minimum
    0x40804100,  // little cluster, maximum
    0x40800000,  // middle or big cluster, minimum
    0x40804000,  // middle or big cluster, maximum
    0x40800200,  // prime cluster, minimum
    0x40804200,  // prime cluster, maximum
});

constexpr bool IsFrequencyOpcode(int32_t opcode) {
    return std::find(kFrequencyOpcodes.begin(), kFrequencyOpcodes.end(), opcode) !=
           kFrequencyOpcodes.end();
}

// The only keys that an interactive-governor element may have; "_l" is the little cluster, "_b" the
// big one.
inline constexpr auto kInteractiveKeys = std::to_array<std::string_view>({
    "duration_ms",
    "boost_limit_level",
    "go_hispeed_load_l",
    "go_hispeed_load_b",
    "hispeed_freq_l",
    "hispeed_freq_b",
    "target_load_freq_l",
    "target_load_freq_b",
    "above_hispeed_delay_l",
    "above_hispeed_delay_b",
    "priority",
    "min_sample_time_b",
    "min_sample_time_l",
});

// A key of a long-term scene and the tag that it names, with two clusters and with three; kNoTag
// where that layout does not have it. Tags 7, 6, 63 and 66 always name the last cluster, 4, 3, 62
// and 65 the middle one of three.
struct TagName {
    std::string_view name;
    int32_t tagTwoClusters;
    int32_t tagThreeClusters;
};
inline constexpr int kNoTag = -1;

inline constexpr auto kTagNames = std::to_array<TagName>({
    {"little_cpu0_max_freq",         1,      1},
    {"little_cpu0_min_freq",         0,      0},
    {"gpu_max_power_level",          68,     68},
    {"gpu_max_freq",                 10,     10},
    {"gpu_min_power_level",          67,     67},
    {"gpu_min_freq",                 9,      9},
    {"prime_cpu0_max_freq",          kNoTag, 7},
    {"big_cpu0_max_freq",            7,      4},
    {"prime_cpu0_min_freq",          kNoTag, 6},
    {"big_cpu0_min_freq",            6,      3},
    {"max_online_cpu_cluster_prime", kNoTag, 63},
    {"min_online_cpu_cluster_prime", kNoTag, 66},
    {"max_online_cpu_cluster_big",   63,     62},
    {"min_online_cpu_cluster_big",   66,     65},
});
// clang-format on

namespace vocabulary_checks {

constexpr bool HasUniqueNames() {
    std::array<std::string_view, kOpcodeNames.size()> names{};
    for (size_t i = 0; i < names.size(); ++i) names[i] = kOpcodeNames[i].name;
    std::sort(names.begin(), names.end());
    return std::adjacent_find(names.begin(), names.end()) == names.end();
}

static_assert(kOpcodeNames.size() == 244);
static_assert(HasUniqueNames());

}  // namespace vocabulary_checks

}  // namespace tarquel

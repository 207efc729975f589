// Names of elements and keys that describe a command or the platform rather than a tunable.
#pragma once

#include <string_view>

namespace tarquel::keys {

// Elements.
inline constexpr std::string_view kCpuInfo = "qcom_cpu_info";
inline constexpr std::string_view kFreqLevelInfo = "freq_level_info";  // followed by a level number

// Keys of an action element.
inline constexpr std::string_view kDuration = "duration_ms";
inline constexpr std::string_view kBoostLimitLevel = "boost_limit_level";
inline constexpr std::string_view kOffDelayTime = "off_delay_time";
inline constexpr std::string_view kOffDelayPerc = "off_delay_perc";
inline constexpr std::string_view kBoostCountLimit = "boost_count_limit";
inline constexpr std::string_view kBoostPeriod = "boost_period";

// Keys of "qcom_cpu_info".
inline constexpr std::string_view kPrimeCpus = "prime_cpu_num";
inline constexpr std::string_view kBigCpus = "big_cpu_num";
inline constexpr std::string_view kLittleCpus = "lit_cpu_num";
inline constexpr std::string_view kIsolation = "isolation";

// Keys of "freq_level_info".
inline constexpr std::string_view kLittleMaxFreq = "little_cpu0_max_freq";
inline constexpr std::string_view kBigMaxFreq = "big_cpu0_max_freq";
inline constexpr std::string_view kPrimeMaxFreq = "prime_cpu0_max_freq";

// True for a key of an action element that names no tunable.
constexpr bool IsHeadKey(std::string_view key) {
    return key == kDuration || key == kBoostLimitLevel || key == kOffDelayTime ||
           key == kOffDelayPerc || key == kBoostCountLimit || key == kBoostPeriod;
}

}  // namespace tarquel::keys

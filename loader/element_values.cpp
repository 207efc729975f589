// The values of elements that describe a command or the platform: thermal levels, count limits,
// clusters, boost frequencies.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "base/cpu_info.h"
#include "base/log.h"
#include "loader/boost_info.h"
#include "loader/element_keys.h"
#include "loader/perf_load_xml.h"
#include "tarquel/securec.h"

namespace keys = tarquel::keys;

namespace {

// Reads "first-last". False, with a log line, for anything else; no test relates the two.
bool ReadCpuRange(const std::string& value, CpuRange& cpus) {
    const int count = sscanf_s(value.c_str(), "%d-%d", &cpus.first, &cpus.last);
    if (count == 2) return true;
    TARQUEL_LOGE("tarquel: get cpu node info failed!, %d", count);
    return false;
}

}  // namespace

void QcomPerfLoadXml::StoreHeadValue(RawXmlData& element, std::string_view key, int number,
                                     int& boostLimitLevel) {
    if (key == keys::kOffDelayTime) {
        element.offDelayTime = number;
    } else if (key == keys::kOffDelayPerc) {
        element.offDelayPerc = number;
    } else if (key == keys::kBoostCountLimit) {
        BoostCountLimitInfo::GetInstance().With(
            [&](auto& counts) { counts.limits[element.cmdId] = number; });
    } else if (key == keys::kBoostPeriod) {
        BoostCountLimitInfo::GetInstance().With(
            [&](auto& counts) { counts.periods[element.cmdId] = number; });
    } else if (key == keys::kBoostLimitLevel) {
        // Nibbles 1 to 4: the boost-frequency level of each thermal level; 7: the highest thermal
        // level under which the action may boost.
        const std::array<int, 8> nibbles = tarquel::ParseBoostFreqLevelList(number);
        element.boostLevels.insert(element.boostLevels.end(), nibbles.begin() + 1,
                                   nibbles.begin() + 5);
        boostLimitLevel = nibbles[7];
    }
}

void QcomPerfLoadXml::ParserCpuInfo(const std::string& key, const std::string& value) {
    if (key.empty() || value.empty()) {
        TARQUEL_LOGE("tarquel: ParserCpuInfo failed!");
        return;
    }
    CpuInfo& info = CpuInfo::GetInstance();
    CpuRange cpus;
    if (key == keys::kBigCpus) {
        if (ReadCpuRange(value, cpus)) info.With([&](auto& clusters) { clusters.big = cpus; });
    } else if (key == keys::kPrimeCpus) {
        if (!ReadCpuRange(value, cpus)) return;
        hasPrimeCluster = 1;
        info.With([&](auto& clusters) { clusters.prime = cpus; });
    } else if (key == keys::kLittleCpus) {
        if (ReadCpuRange(value, cpus)) info.With([&](auto& clusters) { clusters.little = cpus; });
    } else if (key == keys::kIsolation) {
        int isolation = 0;
        const int count = sscanf_s(value.c_str(), "%d", &isolation);
        if (count != 1) {
            TARQUEL_LOGE("tarquel: get cpu isolation info failed!, %d", count);
            return;
        }
        info.With([&](auto& clusters) { clusters.isolation = isolation; });
    }
}

void QcomPerfLoadXml::ParseFreqLevelInfo(const std::string& key, const std::string& value,
                                         int level) {
    if (key.empty() || value.empty()) {
        TARQUEL_LOGE("tarquel: ParseFreqLevelInfo failed!");
        return;
    }
    if (!IsBoostLevel(level)) {
        TARQUEL_LOGE("tarquel: ParseFreqLevelInfo failed! level %d is not 0 to 9, element is %s",
                     level, key.c_str());
        return;
    }
    FreqBoostInfo::GetInstance().With([&](auto& levels) {
        BoostTexts& texts = levels[static_cast<size_t>(level)];
        if (key == keys::kLittleMaxFreq) texts.little = value;
        if (key == keys::kBigMaxFreq) texts.big = value;
        if (key == keys::kPrimeMaxFreq) texts.prime = value;
    });
}

namespace tarquel {

bool IsNumber(const std::string& text, int& number) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const std::ptrdiff_t sign = text.starts_with('-') ? 1 : 0;
    if (text.empty() || !std::all_of(text.begin() + sign, text.end(), isDigit)) return false;
    number = std::atoi(text.c_str());
    return true;
}

std::array<int, 8> ParseBoostFreqLevelList(int value) {
    std::array<int, 8> nibbles{};
    auto rest = static_cast<uint32_t>(value);
    for (auto nibble = nibbles.rbegin(); nibble != nibbles.rend(); ++nibble) {
        *nibble = static_cast<int>(rest & 0xF);
        rest >>= 4;
    }
    return nibbles;
}

}  // namespace tarquel

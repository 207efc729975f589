// The values of elements that describe a command or the platform: thermal levels, count limits,
// clusters, boost frequencies.
#include <array>
#include <cstdint>
#include <cstdlib>

#include "base/cpu_info.h"
#include "base/log.h"
#include "loader/boost_info.h"
#include "loader/element_keys.h"
#include "loader/perf_load_xml.h"
#include "loader/word.h"
#include "tarquel/securec.h"

using tarquel::HalfWord;
using tarquel::kHalfWordBytes;
using tarquel::kWordBytes;
namespace keys = tarquel::keys;

namespace {

// Reads "first-last". False, with a log line, for anything else; no test relates the two.
bool ReadCpuRange(const std::string& value, CpuRange& cpus) {
    const int count = sscanf_s(value.c_str(), "%d-%d", &cpus.first, &cpus.last);
    if (count == 2) return true;
    TARQUEL_LOGE("tarquel: get cpu node info failed!, %d", count);
    return false;
}

constexpr uint64_t kEveryByte = 0x0101010101010101;

// One to eight characters as a word, zeros before them, that has digits as their values. A byte
// above 9 is a character that is no digit.
uint64_t WordOfDigits(std::string_view digits) {
    const size_t shift = 8 * (kWordBytes - digits.size());
    uint64_t word = 0;
    if (digits.size() >= kHalfWordBytes) {
        // The halves overlap unless there are eight.
        const uint64_t first = HalfWord(digits.data());
        const uint64_t last = HalfWord(digits.data() + digits.size() - kHalfWordBytes);
        word = first << shift | last << (8 * kHalfWordBytes);
    } else {
        for (const char c : digits) {
            word = word >> 8 | uint64_t{static_cast<unsigned char>(c)} << 56;
        }
    }
    return word ^ ('0' * kEveryByte) << shift;
}

bool AreDigits(uint64_t word) {
    constexpr uint64_t kHighBits = 0x80 * kEveryByte;
    return ((word | (word + (0x7F - 9) * kEveryByte)) & kHighBits) == 0;
}

// Neighbours are joined: digits to numbers of two, these to numbers of four, these to one of eight.
uint64_t ValueOfDigits(uint64_t word) {
    word = (word * (1 + (10 << 8))) >> 8 & 0x00FF00FF00FF00FF;
    word = (word * (1 + (100 << 16))) >> 16 & 0x0000FFFF0000FFFF;
    return (word * (1 + (uint64_t{10000} << 32))) >> 32;
}

}  // namespace

void QcomPerfLoadXml::StoreHeadValue(RawXmlData& element, std::string_view key, int number,
                                     int* boostLimitLevel) {
    if (key == keys::kOffDelayTime) {
        element.offDelayTime = number;
    } else if (key == keys::kOffDelayPerc) {
        element.offDelayPerc = number;
    } else if (key == keys::kBoostCountLimit) {
        BoostCountLimitInfo::GetInstance().SetBoostCountLimit(element.cmdId, number);
    } else if (key == keys::kBoostPeriod) {
        BoostCountLimitInfo::GetInstance().SetBoostPeriod(element.cmdId, number);
    } else if (key == keys::kBoostLimitLevel) {
        // Nibbles 1 to 4: the boost-frequency level of each thermal level; 7: the highest thermal
        // level under which the action may boost.
        const std::array<int, 8> nibbles = tarquel::ParseBoostFreqLevelList(number);
        element.boostLevels.insert(element.boostLevels.end(), nibbles.begin() + 1,
                                   nibbles.begin() + 5);
        *boostLimitLevel = nibbles[7];
    }
}

void QcomPerfLoadXml::ParserCpuInfo(const std::string& key, const std::string& value) {
    if (key.empty() || value.empty()) {
        TARQUEL_LOGE("tarquel: ParserCpuInfo failed!");
        return;
    }
    CpuRange cpus;
    if (key == keys::kBigCpus) {
        if (ReadCpuRange(value, cpus)) CpuInfo::GetInstance().SetBig(cpus);
    } else if (key == keys::kPrimeCpus) {
        if (!ReadCpuRange(value, cpus)) return;
        hasPrimeCluster = 1;
        CpuInfo::GetInstance().SetPrime(cpus);
    } else if (key == keys::kLittleCpus) {
        if (ReadCpuRange(value, cpus)) CpuInfo::GetInstance().SetLittle(cpus);
    } else if (key == keys::kIsolation) {
        int isolation = 0;
        const int count = sscanf_s(value.c_str(), "%d", &isolation);
        if (count != 1) {
            TARQUEL_LOGE("tarquel: get cpu isolation info failed!, %d", count);
            return;
        }
        CpuInfo::GetInstance().SetIsolation(isolation);
    }
}

void QcomPerfLoadXml::ParseFreqLevelInfo(const std::string& key, const std::string& value,
                                         int level) {
    if (key.empty() || value.empty()) {
        TARQUEL_LOGE("tarquel: ParseFreqLevelInfo failed!");
        return;
    }
    if (!FreqBoostInfo::IsLevel(level)) {
        TARQUEL_LOGE("tarquel: ParseFreqLevelInfo failed! level %d is not 0 to 9, element is %s",
                     level, key.c_str());
        return;
    }
    FreqBoostInfo& info = FreqBoostInfo::GetInstance();
    if (key == keys::kLittleMaxFreq) {
        info.SetLittle(level, value);
    } else if (key == keys::kBigMaxFreq) {
        info.SetBig(level, value);
    } else if (key == keys::kPrimeMaxFreq) {
        info.SetPrime(level, value);
    }
}

namespace tarquel {

bool IsNumber(const std::string& text, int& number) {
    if (text.empty()) return false;
    std::string_view digits = text;
    const bool isNegative = digits[0] == '-';
    if (isNegative) digits.remove_prefix(1);
    uint64_t value = 0;
    if (!digits.empty() && digits.size() <= kWordBytes) {
        const uint64_t word = WordOfDigits(digits);
        if (!AreDigits(word)) return false;
        value = ValueOfDigits(word);
    } else {
        for (const char c : digits) {
            const unsigned digit = static_cast<unsigned char>(c) - unsigned{'0'};
            if (digit > 9) return false;
            value = value * 10 + digit;
        }
    }
    // What becomes of a number that does not fit is atoi's business.
    constexpr size_t kFits = 18;
    number = digits.size() > kFits ? std::atoi(text.c_str())
                                   : static_cast<int>(isNegative ? 0 - value : value);
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

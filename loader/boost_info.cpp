#include "loader/boost_info.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "base/cpu_info.h"
#include "base/never_destroyed.h"

namespace {

// 0 for a text that does not begin with a number; saturates at the ends of int.
int DecimalToInt(const std::string& text) {
    return static_cast<int>(
        std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

int FindPositive(const std::map<int, int>& values, int cmdId) {
    const auto found = values.find(cmdId);
    return found == values.end() || found->second < 1 ? -1 : found->second;
}

}  // namespace

FreqBoostInfo& FreqBoostInfo::GetInstance() {
    static tarquel::NeverDestroyed<FreqBoostInfo> instance;
    return instance.Get();
}

std::optional<BoostFrequencies> FreqBoostInfo::GetBoostInfo(int level) const {
    if (!IsBoostLevel(level)) return std::nullopt;
    const bool hasPrime = CpuInfo::GetInstance().Get().HasPrime();
    const BoostTexts texts = With([=](const auto& all) { return all[static_cast<size_t>(level)]; });
    if (texts.little.empty() || texts.big.empty() || (hasPrime && texts.prime.empty())) {
        return std::nullopt;
    }
    return BoostFrequencies{DecimalToInt(texts.little), DecimalToInt(texts.big),
                            DecimalToInt(texts.prime)};
}

BoostCountLimitInfo& BoostCountLimitInfo::GetInstance() {
    static tarquel::NeverDestroyed<BoostCountLimitInfo> instance;
    return instance.Get();
}

int BoostCountLimitInfo::GetBoostCountLimit(int cmdId) const {
    return With([=](const auto& counts) { return FindPositive(counts.limits, cmdId); });
}

int BoostCountLimitInfo::GetBoostPeriod(int cmdId) const {
    return With([=](const auto& counts) { return FindPositive(counts.periods, cmdId); });
}

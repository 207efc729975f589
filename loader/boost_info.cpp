#include "loader/boost_info.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "base/cpu_info.h"

namespace {

// 0 for a text that does not begin with a number; saturates at the ends of int.
int DecimalToInt(const std::string& text) {
    return static_cast<int>(
        std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

}  // namespace

FreqBoostInfo& FreqBoostInfo::GetInstance() {
    static tarquel::NeverDestroyed<FreqBoostInfo> instance;
    return instance.Get();
}

bool FreqBoostInfo::HasBoostInfo(int level) const {
    if (!IsLevel(level)) return false;
    const bool hasPrime = CpuInfo::GetInstance().Get().HasPrime();
    std::lock_guard lock(mMutex);
    const Level& info = mLevels[static_cast<size_t>(level)];
    if (info.little.empty() || info.big.empty()) return false;
    return !hasPrime || !info.prime.empty();
}

BoostFrequencies FreqBoostInfo::Get(int level) const {
    std::lock_guard lock(mMutex);
    const Level& info = mLevels[static_cast<size_t>(level)];
    return {DecimalToInt(info.little), DecimalToInt(info.big), DecimalToInt(info.prime)};
}

void FreqBoostInfo::SetLittle(int level, const std::string& khz) {
    std::lock_guard lock(mMutex);
    mLevels[static_cast<size_t>(level)].little = khz;
}

void FreqBoostInfo::SetBig(int level, const std::string& khz) {
    std::lock_guard lock(mMutex);
    mLevels[static_cast<size_t>(level)].big = khz;
}

void FreqBoostInfo::SetPrime(int level, const std::string& khz) {
    std::lock_guard lock(mMutex);
    mLevels[static_cast<size_t>(level)].prime = khz;
}

void FreqBoostInfo::Clear() {
    std::lock_guard lock(mMutex);
    mLevels = {};
}

BoostCountLimitInfo& BoostCountLimitInfo::GetInstance() {
    static tarquel::NeverDestroyed<BoostCountLimitInfo> instance;
    return instance.Get();
}

int BoostCountLimitInfo::Find(const std::map<int, int>& values, int cmdId) const {
    std::lock_guard lock(mMutex);
    const auto found = values.find(cmdId);
    return found == values.end() || found->second < 1 ? -1 : found->second;
}

int BoostCountLimitInfo::GetBoostCountLimit(int cmdId) const {
    return Find(mCountLimits, cmdId);
}

int BoostCountLimitInfo::GetBoostPeriod(int cmdId) const {
    return Find(mPeriods, cmdId);
}

void BoostCountLimitInfo::SetBoostCountLimit(int cmdId, int limit) {
    std::lock_guard lock(mMutex);
    mCountLimits[cmdId] = limit;
}

void BoostCountLimitInfo::SetBoostPeriod(int cmdId, int period) {
    std::lock_guard lock(mMutex);
    mPeriods[cmdId] = period;
}

void BoostCountLimitInfo::Clear() {
    std::lock_guard lock(mMutex);
    mCountLimits.clear();
    mPeriods.clear();
}

#include "actions/boost_counter.h"

#include <algorithm>

#include "loader/boost_info.h"

namespace tarquel {

void BoostWindow::Count(int64_t now, int period, int limit) {
    // The difference of two time stamps may exceed their signed type.
    const uint64_t elapsed = static_cast<uint64_t>(now) - static_cast<uint64_t>(mStart);
    if (mStart != 0 && mStart <= now && elapsed < static_cast<uint64_t>(period)) {
        const int width = period / limit;
        const int64_t steps = width == 0 ? 0 : static_cast<int64_t>(elapsed) / width;
        mStart += width * steps;
        mCurrent += steps;
        // A limit that changed since the last boost changes which slots are still inside.
        const auto isInside = [&](const Slot& slot) { return mCurrent - slot.number < limit; };
        mSlots.erase(mSlots.begin(), std::find_if(mSlots.begin(), mSlots.end(), isInside));
    } else {
        mStart = now;
        mCurrent = 0;
        mSlots.clear();
    }
    if (mSlots.empty() || mSlots.back().number != mCurrent) mSlots.push_back({mCurrent, 0});
    ++mSlots.back().boosts;
}

int64_t BoostWindow::Sum() const {
    int64_t sum = 0;
    for (const Slot& slot : mSlots) sum += slot.boosts;
    return sum;
}

void BoostCounter::UpdateBoostCount(int cmdId, int64_t now) {
    const int period = BoostCountLimitInfo::GetInstance().GetBoostPeriod(cmdId);
    const int limit = BoostCountLimitInfo::GetInstance().GetBoostCountLimit(cmdId);
    if (period < 1 || limit < 1) return;
    std::lock_guard lock(mMutex);
    mWindows[cmdId].Count(now, period, limit);
}

bool BoostCounter::CanThermalBoost(int cmdId) const {
    const int period = BoostCountLimitInfo::GetInstance().GetBoostPeriod(cmdId);
    const int limit = BoostCountLimitInfo::GetInstance().GetBoostCountLimit(cmdId);
    if (period < 1 || limit < 1) return true;
    std::lock_guard lock(mMutex);
    const auto window = mWindows.find(cmdId);
    return window == mWindows.end() || window->second.Sum() < limit;
}

}  // namespace tarquel

#include "lab/ask/limit_times.h"

#include <algorithm>

namespace lab {

std::vector<RunStats::Part> PartsOf(const Times& times) {
    std::vector<RunStats::Part> parts;
    for (const auto& [name, time] : times) {
        if (time > Time{}) parts.push_back({name, time});
    }
    std::stable_sort(parts.begin(), parts.end(),
                     [](const auto& a, const auto& b) { return a.time > b.time; });
    return parts;
}

void LimitTimes::Set(Time now, const std::optional<int64_t>& value, const std::string& by) {
    Account(now);
    mValue = value;
    mBy = by;
}

void LimitTimes::See(Time now) {
    if (mIsSeen) return;
    Account(now);
    mIsSeen = true;
}

std::vector<RunStats::Value> LimitTimes::ValuesUntil(Time end, int64_t perKhz, bool isWhole) {
    Account(end);
    std::map<std::optional<int64_t>, Times> times = mTimes;
    for (const auto& [name, time] : mUnseen) {
        times[isWhole ? mBoot : std::nullopt][isWhole ? name : ""] += time;
    }
    std::vector<RunStats::Value> values;
    for (const auto& [value, by] : times) {
        RunStats::Value entry;
        if (value) entry.khz = *value / perKhz;
        entry.by = PartsOf(by);
        for (const RunStats::Part& part : entry.by) entry.time += part.time;
        if (!value) entry.by.clear();
        if (entry.time > Time{}) values.push_back(std::move(entry));
    }
    return values;
}

void LimitTimes::Account(Time now) {
    if (now == mSince) return;
    Times& times = mIsSeen ? mTimes[mValue] : mUnseen;
    times[mBy] += now - mSince;
    mSince = now;
}

}  // namespace lab

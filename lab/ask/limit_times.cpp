#include "lab/ask/limit_times.h"

#include <algorithm>

namespace lab {
namespace {

constexpr char kThermal[] = "thermal";

// True where somebody's limit was in force, or another value than one.
bool IsHeld(const std::vector<RunStats::Value>& values) {
    if (values.size() != 1) return values.size() > 1;
    return std::any_of(values[0].by.begin(), values[0].by.end(),
                       [](const RunStats::Part& part) { return !part.name.empty(); });
}

}  // namespace

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

void AddRange(LimitRange& range, RunStats& stats) {
    RunStats::Range to{range.name, range.lowKhz, range.highKhz};
    if (range.floor) to.floors = range.floor->ValuesUntil(stats.at, range.perKhz, stats.isWhole);
    if (range.ceiling) {
        to.ceilings = range.ceiling->ValuesUntil(stats.at, range.perKhz, stats.isWhole);
    }
    for (const RunStats::Value& value : to.ceilings) {
        for (const RunStats::Part& part : value.by) {
            if (part.name == kThermal) to.capped += part.time;
        }
    }
    if (range.isBus && !IsHeld(to.floors) && !IsHeld(to.ceilings)) return;
    stats.ranges.push_back(std::move(to));
}

}  // namespace lab

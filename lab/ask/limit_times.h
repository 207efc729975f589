// Sums of time for the counts of a run: how long something was so, and how long a floor or a
// ceiling had each of its values.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/ask/run_stats.h"
#include "lab/names/frequency_ranges.h"

namespace lab {

// Time during which at least one of several things is so.
class Span {
  public:
    void Begin(Time now) {
        if (mCount++ == 0) mSince = now;
    }
    void End(Time now) {
        if (--mCount == 0) mTotal += now - mSince;
    }
    Time Total(Time now) const { return mTotal + (mCount > 0 ? now - mSince : Time{}); }

  private:
    int mCount = 0;
    Time mSince{};
    Time mTotal{};
};

using Times = std::map<std::string, Time>;  // by name

// Longest first.
std::vector<RunStats::Part> PartsOf(const Times& times);

// How long a floor or a ceiling read each of its values, and by whose word.
class LimitTimes {
  public:
    //   boot  what it reads after boot, by nobody's word
    explicit LimitTimes(std::optional<int64_t> boot) : mBoot(boot), mValue(boot) {}

    // From now on. Without a name it is nobody's word.
    void Set(Time now, const std::optional<int64_t>& value, const std::string& by);

    // Some line tells of the node: before the first one it may have had any value.
    void See(Time now);

    //   isWhole  what stood there before it was seen is known, too
    std::vector<RunStats::Value> ValuesUntil(Time end, int64_t perKhz, bool isWhole);

  private:
    void Account(Time now);

    const std::optional<int64_t> mBoot;
    std::optional<int64_t> mValue;
    std::string mBy;
    Time mSince{};
    bool mIsSeen = false;
    std::map<std::optional<int64_t>, Times> mTimes;
    Times mUnseen;
};

// The limits of a cluster, the GPU, or a bus.
struct LimitRange : FrequencyRange {
    std::optional<LimitTimes> floor = {};  // none: the device has no such node
    std::optional<LimitTimes> ceiling = {};
};

// Adds to `stats`, up to its end, what has been counted; a bus only where it is limited.
void AddRange(LimitRange& range, RunStats& stats);

}  // namespace lab

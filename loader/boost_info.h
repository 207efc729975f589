// What the configuration says about boosts: frequencies by level, and how often a command may
// boost in a period. Both are process-wide: the loader writes them, the adapter reads. Threads:
// any.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>

#include "base/guarded.h"

// Boost frequencies of one level, kHz.
struct BoostFrequencies {
    int little = 0;
    int big = 0;
    int prime = 0;  // counts with a prime cluster only
};

// The same as the configuration has them: decimal texts, empty where it has none.
struct BoostTexts {
    std::string little;
    std::string big;
    std::string prime;
};

inline constexpr int kBoostLevels = 10;  // numbered 0 to 9
constexpr bool IsBoostLevel(int level) {
    return level >= 0 && level < kBoostLevels;
}

class FreqBoostInfo : public tarquel::Guarded<std::array<BoostTexts, kBoostLevels>> {
  public:
    static FreqBoostInfo& GetInstance();

    // The level's frequencies when it has one for every cluster that the configuration names; a
    // text that is no number counts as 0. Nothing for a level outside 0 to 9.
    std::optional<BoostFrequencies> GetBoostInfo(int level) const;
    bool HasBoostInfo(int level) const { return GetBoostInfo(level).has_value(); }
};

// By command.
struct BoostCountLimits {
    std::map<int, int> limits;
    std::map<int, int> periods;  // in the unit of the server's time stamps
};

class BoostCountLimitInfo : public tarquel::Guarded<BoostCountLimits> {
  public:
    static BoostCountLimitInfo& GetInstance();

    // The configured value of `cmdId`, -1 when there is none or it is below 1.
    int GetBoostCountLimit(int cmdId) const;
    int GetBoostPeriod(int cmdId) const;
};

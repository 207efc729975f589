// What the configuration says about boosts: frequencies by level, and how often a command may
// boost in a period. Both are process-wide: the loader writes them, the adapter reads. Threads:
// any.
#pragma once

#include <array>
#include <map>
#include <mutex>
#include <string>

#include "base/never_destroyed.h"

// Boost frequencies of one level, kHz.
struct BoostFrequencies {
    int little = 0;
    int big = 0;
    int prime = 0;  // counts with a prime cluster only
};

class FreqBoostInfo {
  public:
    static constexpr int kLevels = 10;  // numbered 0 to 9
    static bool IsLevel(int level) { return level >= 0 && level < kLevels; }

    static FreqBoostInfo& GetInstance();

    // True when the level has a frequency for every cluster that the configuration names.
    // False for a level outside 0 to 9.
    bool HasBoostInfo(int level) const;

    // The level's frequencies; a text that is no number counts as 0. `level` is one of 0 to 9.
    BoostFrequencies Get(int level) const;

    // Stores a decimal text as it stands. `level` is one of 0 to 9.
    void SetLittle(int level, const std::string& khz);
    void SetBig(int level, const std::string& khz);
    void SetPrime(int level, const std::string& khz);

    void Clear();

  private:
    friend class tarquel::NeverDestroyed<FreqBoostInfo>;

    struct Level {
        std::string little;
        std::string big;
        std::string prime;
    };

    FreqBoostInfo() = default;

    mutable std::mutex mMutex;
    std::array<Level, kLevels> mLevels;
};

class BoostCountLimitInfo {
  public:
    static BoostCountLimitInfo& GetInstance();

    // The configured value of `cmdId`, -1 when there is none or it is below 1.
    int GetBoostCountLimit(int cmdId) const;
    int GetBoostPeriod(int cmdId) const;  // in the unit of the server's time stamps

    void SetBoostCountLimit(int cmdId, int limit);
    void SetBoostPeriod(int cmdId, int period);

    void Clear();

  private:
    friend class tarquel::NeverDestroyed<BoostCountLimitInfo>;

    BoostCountLimitInfo() = default;
    int Find(const std::map<int, int>& values, int cmdId) const;

    mutable std::mutex mMutex;
    std::map<int, int> mCountLimits;
    std::map<int, int> mPeriods;
};

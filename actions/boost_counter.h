// Counts how often each command boosted within a sliding window and says when it is used up.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace tarquel {

// The window of one command: `limit` slots over `period`, of which the counts that still matter are
// kept. Its memory follows the boosts that happened, not the configured limit.
class BoostWindow {
  public:
    // Counts one boost at `now`; slots that left the window are forgotten.
    void Count(int64_t now, int period, int limit);

    int64_t Sum() const;

  private:
    struct Slot {
        int64_t number;  // counted since the window started
        int64_t boosts;
    };

    int64_t mStart = 0;    // 0: not started
    int64_t mCurrent = 0;  // number of the slot that counts now
    std::vector<Slot> mSlots;
};

// Limits and periods come from the configuration (BoostCountLimitInfo). Threads: any.
class BoostCounter {
  public:
    // Counts one boost of `cmdId` at `now`, in the unit of its period. A command without both a
    // limit and a period is not counted.
    void UpdateBoostCount(int cmdId, int64_t now);

    // True unless the command's window already holds as many boosts as its limit.
    bool CanThermalBoost(int cmdId) const;

  private:
    mutable std::mutex mMutex;
    std::map<int, BoostWindow> mWindows;
};

}  // namespace tarquel

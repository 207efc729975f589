#include "lab/ask/longest_holds.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/server/timeline.h"

namespace lab {

LockHold HoldOf(const BookedLock& lock, Layout layout) {
    LockHold hold;
    hold.who = lock.owner;
    if (!lock.list.empty()) hold.what = Timeline::PairText(lock.list[0], lock.list[1], layout);
    if (lock.list.size() > 2) {
        hold.what += fmt::format(" and {} more", lock.list.size() / 2 - 1);
    }
    hold.handle = lock.handle;
    hold.takenBy = lock.takenBy;
    hold.since = lock.isEarlier ? Time(0) : lock.since;
    hold.isEarlier = lock.isEarlier;
    return hold;
}

void LongestHolds::Add(LockHold hold) {
    mHolds.push_back(std::move(hold));
    if (mHolds.size() < 2 * kMost) return;
    Sort();
    mHolds.resize(kMost);
}

std::vector<LockHold> LongestHolds::Take() {
    Sort();
    return std::move(mHolds);
}

void LongestHolds::Sort() {
    std::stable_sort(mHolds.begin(), mHolds.end(), [](const LockHold& a, const LockHold& b) {
        return a.end - a.since > b.end - b.since;
    });
}

}  // namespace lab

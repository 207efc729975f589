// Who had a lock, and for how long.
#pragma once

#include <string>
#include <vector>

#include "lab/book/book.h"

namespace lab {

// A lock in the hands of one owner.
struct LockHold {
    std::string who;
    std::string what;  // "big_cpu0_min_freq >= 1324 MHz and 8 more"; empty: not told
    int handle = 0;
    RequestPtr takenBy;
    Time since{};
    Time end{};
    bool isEarlier = false;  // it was held before the capture begins: at least since then
    bool isHeld = false;     // still, at the end
    std::string doubt;       // why it is not sure that it is; empty: it is
};

// A lock's hold from its taking on; it is not ended.
LockHold HoldOf(const BookedLock& lock, Layout layout);

// Holds that are over. More of them than anybody reads are not kept through a long run.
class LongestHolds {
  public:
    static constexpr size_t kMost = 1000;

    void Add(LockHold hold);

    // The longest first: kMost of them at least, where there were as many.
    std::vector<LockHold> Take();

  private:
    void Sort();

    std::vector<LockHold> mHolds;
};

}  // namespace lab

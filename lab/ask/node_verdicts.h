// Who of those that hold a node counts, and by which rule the others lost.
#pragma once

#include <string>
#include <vector>

#include "lab/book/book.h"

namespace lab {

struct Holder {
    Ask ask;
    bool wins = false;
    std::string held;                // "lock 4", "lock 3 of the tag"; empty for a write
    std::string verdict;             // the rule by which it wins or loses
    std::vector<std::string> notes;  // what was made of its value on the way
    int handle = 0;                  // of the lock in `held`; 0: none
    std::string doubt;               // why it is not sure that the lock is held; empty: it is
};

// Everybody who asks for something now: those that win first, then the oldest first.
//   boot  what the node read after boot; a write of that is nobody's word
std::vector<Holder> WeighHolders(const NodeTarget& target, const Book& book,
                                 const std::string& boot);

// The verdict on a floor that asks for more than the ceiling of its node begins with it.
inline constexpr char kFloorAboveCeiling[] = "floor above ceiling";

}  // namespace lab

// Which lock is drawn on which lane.
#pragma once

#include <string>
#include <vector>

#include "lab/book/history.h"

namespace lab {

// Locks of one holder that do not overlap.
struct Lane {
    std::string name;  // the holder; "touch (2)" for its second lane
    std::string holder;
    std::vector<size_t> locks;  // indexes into History::Locks, by time
};

// The lanes in the order in which their first locks were taken, a holder's lanes beside each other.
// A lock belongs to the holder that took it, whoever renews it.
std::vector<Lane> LanesOf(const History& history);

}  // namespace lab

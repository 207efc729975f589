// Which lock is drawn on which lane.
#pragma once

#include <string>
#include <vector>

#include "lab/book/history.h"
#include "lab/names/tag_names.h"

namespace lab {

// A lock for as long as it belongs to one holder.
struct LaneSpan {
    size_t lock = 0;  // index into History::Locks
    Time since{};
    Time end{};
};

// Spans of one holder that do not overlap.
struct Lane {
    std::string name;  // the holder; "touch (2)" for its second lane, "thermal big_max" for a tag's
    std::string who;   // as History::WhoOf
    std::vector<LaneSpan> spans;  // by time
};

// The lanes in the order in which their first spans begin, a holder's lanes beside each other. A
// lock that changes hands goes on in a lane of its new holder. A tag has a lane of its own: its
// lock, and the one that replaces it, are drawn there.
std::vector<Lane> LanesOf(const History& history, Layout layout);

}  // namespace lab

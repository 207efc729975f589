// Why a node reads what it reads: its value, who asks for what, and who asked before.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/ask/node_verdicts.h"

namespace lab {

struct NodeStory {
    NodeTarget target;
    Time at{};
    std::string value;  // as read at that time; of a node that is gone: empty
    bool exists = false;
    std::string boot;                   // as read after boot
    std::string unit;                   // of both
    std::vector<Holder> holders;        // those that win first, then the oldest first
    std::vector<EndedAsk> ended;        // latest first
    std::map<std::string, int> status;  // the performance switch and the thermal level

    // "held by thermal (<= 1651.2 MHz)", or why nobody holds it.
    std::string Because() const;
};

// Tells the story as it is now.
//   boot    what the node read after boot
//   status  as the plug-in reports it
NodeStory TellNodeStory(const NodeTarget& target, const Book& book, const std::string& boot,
                        const std::map<std::string, int>& status);

}  // namespace lab

// Why a node reads what it reads: its value, and who asks for what.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "lab/ask/node_verdicts.h"
#include "lab/ask/replay.h"

namespace lab {

struct NodeStory {
    NodeTarget target;
    std::string value;  // as read now; of a node that is gone: empty
    bool exists = false;
    std::string boot;             // as read after boot
    std::string unit;             // of both
    std::vector<Holder> holders;  // those that win first, then the oldest first

    // "held by thermal (<= 1651.2 MHz)", or why nobody holds it.
    std::string Because() const;
};

// Tells the story as it is now, after Play, with what is not sure of it.
//   boot  what the node read after boot
NodeStory TellNodeStory(Replay& replay, const NodeTarget& target, const std::string& boot);

nlohmann::json NodeStoryJson(const NodeStory& story);

}  // namespace lab

// Why a node reads what it reads at a moment of a scenario or of a capture.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "lab/ask/node_story.h"
#include "lab/ask/replay.h"
#include "lab/names/paint.h"

namespace lab {

struct WhyAnswer : ReplayAnswer {
    NodeStory story;
    std::vector<EndedAsk> ended;        // who asked before, latest first
    std::map<std::string, int> status;  // the performance switch and the thermal level
};

// Plays and answers. Throws std::runtime_error for a node (as FindNode takes it) that is not there.
WhyAnswer AskWhy(Replay& replay, const std::string& node);

// The answer as text; of the asks that ended the latest `mostEnded`.
void PrintWhy(std::ostream& out, const WhyAnswer& answer, size_t mostEnded, const Paint& paint);

// As JSON, with everything that there is to tell.
std::string WhyJson(const WhyAnswer& answer);

}  // namespace lab

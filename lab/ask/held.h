// Everything that is not at its default at a moment of a scenario or of a capture: who holds it,
// who loses, and how sure that is.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "lab/ask/longest_holds.h"
#include "lab/ask/node_story.h"
#include "lab/ask/replay.h"
#include "lab/names/paint.h"

namespace lab {

struct HeldAnswer : ReplayAnswer {
    std::vector<NodeStory> nodes;       // that are not at their default, or that somebody limits
    std::vector<LockHold> holds;        // the longest first
    std::vector<std::string> findings;  // events and locks that were begun long ago and never ended
};

// Plays and looks around.
HeldAnswer AskHeld(Replay& replay);

// The nodes as text, or the `longest` holds when that is above 0.
void PrintHeld(std::ostream& out, const HeldAnswer& answer, size_t longest, const Paint& paint);

// All of it as JSON.
std::string HeldJson(const HeldAnswer& answer);

}  // namespace lab

// Everything that is not at its default at a moment of a scenario or of a capture: who holds it,
// who loses, and how sure that is.
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/ask/node_story.h"
#include "lab/ask/replay.h"
#include "lab/names/paint.h"

namespace lab {

struct HeldAnswer : ReplayAnswer {
    // A lock's hold, or a client's or scene's word on a tag, from its beginning to its end.
    struct Hold {
        std::string who;
        std::string what;           // "big_cpu0_min_freq >= 1324 MHz and 8 more"
        std::string request;        // that asked
        int line = 0;               // of it
        int handle = 0;             // 0: a word
        std::optional<Time> since;  // none: before the capture begins
        std::optional<Time> end;    // none: it is held
    };

    std::vector<NodeStory> nodes;       // that are not at their default, or that somebody limits
    std::vector<Hold> holds;            // the longest first
    std::vector<std::string> findings;  // events and locks that were begun long ago and never ended
};

// Plays and looks around.
HeldAnswer AskHeld(Replay& replay);

// The nodes as text, or the `longest` holds when that is above 0.
void PrintHeld(std::ostream& out, const HeldAnswer& answer, size_t longest, const Paint& paint);

// All of it as JSON.
std::string HeldJson(const HeldAnswer& answer);

}  // namespace lab

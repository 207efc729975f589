// Why a node reads what it reads at a moment of a scenario or of a capture.
#pragma once

#include <ostream>
#include <string>

#include "lab/ask/node_story.h"
#include "lab/ask/replay.h"
#include "lab/names/paint.h"

namespace lab {

struct WhyAnswer {
    NodeStory story;
    Moments times;
    std::string device;
    std::string scenario;  // title, or the file where there is none
    std::string scenes;    // the file
    // What the plug-in refused in the scene file, and what is doubtful in the question or the
    // capture.
    std::vector<std::string> problems;
    bool isWhole = true;  // false: a capture that does not tell everything
};

// Plays and answers. Throws std::runtime_error for a node (as FindNode takes it) that is not there.
WhyAnswer AskWhy(Replay& replay, const std::string& node);

// The answer as text; of the asks that ended the latest `mostEnded`.
void PrintWhy(std::ostream& out, const WhyAnswer& answer, size_t mostEnded, const Paint& paint);

// As JSON, with everything that there is to tell.
std::string WhyJson(const WhyAnswer& answer);

}  // namespace lab

// Replays a scenario up to a moment and tells why a node reads what it reads then.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "lab/ask/node_story.h"
#include "lab/names/paint.h"
#include "lab/server/inputs.h"

namespace lab {

struct WhyQuestion {
    std::string node;        // as FindNode takes it
    std::optional<Time> at;  // none: the scenario's end
    Instead instead;
    std::string library;  // empty: the one beside the program
};

struct WhyAnswer {
    NodeStory story;
    std::string device;
    std::string scenario;  // title, or the file where there is none
    std::string scenes;    // the file
    // What the plug-in refused in the scene file, and what is doubtful in the question.
    std::vector<std::string> problems;
};

// Plays `scenario` and answers. Throws InputError for a file that cannot be used,
// std::runtime_error for a node that is not there.
WhyAnswer AskWhy(const YamlNode& scenario, const WhyQuestion& question);

// The answer as text; of the asks that ended the latest `mostEnded`.
void PrintWhy(std::ostream& out, const WhyAnswer& answer, size_t mostEnded, const Paint& paint);

// As JSON, with everything that there is to tell.
std::string WhyJson(const WhyAnswer& answer);

}  // namespace lab

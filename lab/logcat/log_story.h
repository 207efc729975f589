// What the plug-in's log lines tell: which requests came, and what each of them did.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/book/request_facts.h"
#include "lab/logcat/command_lists.h"
#include "lab/logcat/log_evidence.h"
#include "lab/logcat/log_reader.h"
#include "lab/phone/events.h"
#include "lab/scenes/scene_file.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

// A request, or something that happened without one. Its text is as `run` has it, its line is of
// the capture, its client and facts are empty and null where the log does not tell.
struct LogRequest : RequestBegin {
    Time at{};               // of its first line
    bool isRequest = true;   // false: a timer's doing, or lines that belong to no request
    bool isRestart = false;  // the policy server began anew; what it held is gone
    bool isEarlier = false;  // made before the capture begins; its line is the one that shows it
    std::string result;      // in words
    // The steps of a scenario that make it: what befalls the phone before, the request last. None
    // when a scenario cannot say it.
    std::vector<YamlNode> steps;
    // What happened, with the times and handles of the log. A lock whose list is empty holds what
    // the log does not tell.
    std::vector<Event> effects;
};

// What is wrong or missing beside the requests, as far as they have been told.
struct LogStory {
    // The last place where lines of the plug-in are known to be missing, or cannot be read: what
    // was held before it may have been let go there.
    struct Loss {
        int line = 0;
        Time at{};
    };
    std::optional<Loss> lastLoss;
    std::vector<LogProblem> problems;  // contradictions and gaps
    std::set<int> unknownCommands;     // that the scene file does not have
    LogDetail detail = LogDetail::kErrors;
    bool isWhole = true;  // nothing comes before the capture
};

}  // namespace lab

// What a run or a capture leaves for a comparison: its requests with what comes of each.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lab/ask/replay.h"

namespace lab {

struct RunRecord : ReplayAnswer {
    struct Lock {
        std::vector<std::string> pairs;  // "big_cpu0_min_freq >= 2112 MHz"
        std::string lasts;               // "2000 ms", "until released", "refused with -1"
    };
    struct Place {
        Time at{};
        int line = 0;
    };
    struct Request {
        std::string text;
        Place place;
        bool asks = false;   // the server asks the plug-in; else it is a step of the scenario's own
        std::string result;  // empty: none, or not told
        std::vector<Lock> locks;
        // Nodes that have another value when it is over than when the one before it was, by path.
        std::vector<std::pair<std::string, std::string>> changed;
    };

    std::string name;
    std::map<std::string, std::string> nodes;  // what they read at the start, by path
    std::vector<Request> requests;
    std::vector<std::string> findings;  // of a capture: what is held at its end
};

// Plays and keeps.
RunRecord RecordRun(Replay& replay, const std::string& name);

}  // namespace lab

// What two runs or captures do differently at the same requests, in the words of a release note.
#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "lab/ask/replay.h"
#include "lab/names/paint.h"

namespace lab {

// What a run leaves for a comparison.
struct RunRecord {
    struct Lock {
        std::vector<std::string> pairs;  // "big_cpu0_min_freq >= 2112 MHz"
        std::string lasts;               // "2000 ms", "until released", "refused with -1"
    };
    struct Request {
        std::string text;
        int line = 0;
        Time at{};
        bool asks = false;   // the server asks the plug-in; else it is a step of the scenario's own
        std::string result;  // empty: none, or not told
        std::vector<Lock> locks;
        // Nodes that have another value when it is over than when the one before it was, by path.
        std::vector<std::pair<std::string, std::string>> changed;
    };

    std::string name;
    std::string device;
    Moments times;
    bool isCapture = false;
    bool isWhole = true;
    std::map<std::string, std::string> nodes;  // what they read at the start, by path
    std::vector<Request> requests;
    std::vector<std::string> findings;  // of a capture: what is held at its end
    std::vector<std::string> remarks;
};

// Plays and keeps.
RunRecord RecordRun(Replay& replay, const std::string& name);

struct RunDifference {
    enum class Kind { kDevice, kGone, kNew, kResult, kLock, kValue, kFinding };

    Kind kind = Kind::kDevice;
    std::string request;  // "do game_fight (9220)"; empty: of the whole run
    int beforeLine = 0;   // where it is first so; 0: none
    int afterLine = 0;
    std::optional<Time> beforeAt;  // when
    std::optional<Time> afterAt;
    std::string what;    // "cpu4 scaling_max_freq", "its lock lasts"; empty for a request
    std::string before;  // empty: nothing
    std::string after;
    std::string unit;  // of both
    size_t times = 1;  // how often it is so
};

struct RunComparison {
    std::string before;
    std::string after;
    Moments beforeTimes;
    Moments afterTimes;
    size_t same = 0;      // requests that both make
    bool isWhole = true;  // false: what one capture does not tell may look like a difference
    std::vector<RunDifference> differences;  // in the order in which they begin
};

// Times are no difference. Beside a capture a scenario's own steps are left out.
RunComparison CompareRuns(const RunRecord& before, const RunRecord& after);

void PrintRunComparison(std::ostream& out, const RunComparison& comparison, const Paint& paint);

// As JSON, with everything that there is to tell.
std::string RunComparisonJson(const RunComparison& comparison);

}  // namespace lab

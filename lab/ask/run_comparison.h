// What two runs or captures do differently at the same requests, in the words of a release note.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/ask/run_record.h"
#include "lab/names/paint.h"

namespace lab {

struct RunDifference {
    enum class Kind { kDevice, kGone, kNew, kResult, kLock, kValue, kFinding };

    Kind kind = Kind::kDevice;
    std::string request;  // "do game_fight (9220)"; empty: of the whole run
    std::optional<RunRecord::Place> firstBefore = {};  // when and where it is first so
    std::optional<RunRecord::Place> firstAfter = {};
    std::string what = {};    // "cpu4 scaling_max_freq", "its lock lasts"; empty for a request
    std::string before = {};  // empty: nothing
    std::string after = {};
    std::string unit = {};  // of both
    size_t times = 1;       // how often it is so
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

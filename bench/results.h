// What a run measured: each case beside its floor, as a table and as JSON.
#pragma once

#include <string>
#include <vector>

#include "bench/facts.h"
#include "bench/requests.h"

namespace bench {

// One case: CPU time of an iteration, with its floor from the same run. Of the fastest repetition:
// the machine's other load only ever adds to a time, and not to a case and its floor alike.
struct Timing {
    std::string name;
    std::string unit;  // what the times are for: "request", "key", ...
    Target target;
    double ns = 0;
    double floorNs = 0;  // 0 for a case without one, or whose floor was filtered out
    double medianNs = 0;
    double floorMedianNs = 0;
    long long allocations = -1;  // of one warm request; -1 where that says nothing

    double AboveFloor() const { return ns - floorNs; }
    double Ratio() const { return ns / floorNs; }
    bool HasFloor() const { return floorNs > 0; }
    bool HasTarget() const {
        return HasFloor() && (target.maxRatio > 0 || target.maxNsAboveFloor > 0);
    }
    bool MeetsTarget() const;
};

struct Results {
    std::vector<Timing> timings;
    std::vector<Fact> facts;
    std::string machine;
    std::string nodesFolder;
};

// The table on standard output.
void Print(const Results& results);

// The same as JSON. Throws std::runtime_error when the file cannot be written.
void WriteJson(const Results& results, const std::string& file);

}  // namespace bench

// What a whole run or capture comes to: who asked how often, held how long and counted how long,
// how long each floor and ceiling was in force, and what the floors cost by the user's own numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/ask/longest_holds.h"
#include "lab/ask/power_model.h"
#include "lab/ask/replay.h"
#include "lab/names/paint.h"

namespace lab {

struct RunStats : ReplayAnswer {
    struct Part {
        std::string name;
        Time time{};
    };

    // A scene or a client, as the book names it. Times are those of its asks taken together: two at
    // once count once.
    struct Requester {
        std::string name;
        size_t asked = 0;
        Time held{};               // some lock or word of its is in force
        Time won{};                // one of them at least counts on its node, as 'why' has it
        std::vector<Part> lostTo;  // longest first; one of its asks loses while another's counts
    };

    // A floor or a ceiling that was in force.
    struct Value {
        std::optional<int64_t> khz;  // none: the capture does not tell
        Time time{};
        std::vector<Part> by;  // longest first; without a name: nobody's; empty: not told
    };

    // A cluster, the GPU, or a bus on which a limit acts.
    struct Range {
        std::string name;
        int64_t lowKhz = 0;
        int64_t highKhz = 0;
        std::vector<Value> floors = {};  // ascending
        std::vector<Value> ceilings = {};
        Time capped{};  // the ceiling that counts is the thermal client's
    };

    // What the floors of a range cost above its lowest step.
    struct Cost {
        std::string name;
        double milliwattHours = 0;
        Time raised{};   // that a floor stood above the lowest step
        Time unknown{};  // that nobody knows the floor
    };

    std::string name;                   // the file, as the user named it
    std::vector<Requester> requesters;  // that held longest first
    std::vector<Range> ranges;
    std::vector<LockHold> holds;  // the longest first; one ends where the owner changes
    std::vector<Cost> costs;      // of the ranges that a power model has

    // Those that asked and never counted.
    std::vector<std::string> NeverWon() const;
};

// Plays and counts.
RunStats CountRun(Replay& replay, const std::string& name);

// What the floors cost in the ranges that the model has. Throws InputError for a floor that it does
// not reach.
std::vector<RunStats::Cost> FloorCosts(const RunStats& run, const PowerModel& model);

double TotalCost(const std::vector<RunStats::Cost>& costs);

// Of a run as long as a day, that runs of unlike length can be compared.
double ADay(double milliwattHours, Time length);

// One run, or several side by side.
//   model     null: nothing about power
//   mostHolds how many of the longest holds of each run
void PrintRunStats(std::ostream& out, const std::vector<RunStats>& runs, const PowerModel* model,
                   size_t mostHolds, const Paint& paint);

// As JSON, with everything that there is to tell.
std::string RunStatsJson(const std::vector<RunStats>& runs, const PowerModel* model);

}  // namespace lab

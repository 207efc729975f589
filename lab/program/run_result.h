// What a scenario came to, for people and for scripts.
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/book/book.h"
#include "lab/names/paint.h"
#include "lab/program/commands.h"
#include "lab/program/coverage.h"

namespace lab {

struct RunResult {
    // One pair of a lock's list.
    struct Pair {
        int opcode = 0;
        int value = 0;
        std::string text;        // "big_cpu0_min_freq >= 1324 MHz"
        bool isDefault = false;  // limits nothing
    };
    struct HeldLock {
        int handle = 0;
        std::optional<int64_t> leftMs;  // none: until released
        std::string holder;             // the request that took or last renewed it
        int line = 0;                   // of that request; 0: none
        std::string owner;              // who asks for what it carries
        std::vector<Pair> pairs;
    };

    std::string name;      // as the user gave it
    std::string scenario;  // the file
    std::string title;
    std::string device;
    std::string scenes;
    size_t requests = 0;  // made, the start not counted
    int64_t lastedMs = 0;
    double tookSeconds = 0;             // of the machine's time
    std::vector<std::string> problems;  // of the scene file
    std::vector<HeldLock> held;
    std::vector<RunFinding> findings;
    std::optional<std::string> error;  // why it cannot run

    ExitCode Exit() const;
};

// The locks that the HAL holds, as the book has them.
std::vector<RunResult::HeldLock> HeldLocks(const Book& book, Time now);

// The end of one run: the locks still held, then the findings.
void PrintEnd(const RunResult& result, const Paint& paint, std::ostream& out);

// One line a scenario, and the sum of them.
void PrintSummary(const std::vector<RunResult>& results, const Paint& paint, std::ostream& out);

// The sum of them alone, on one line; above it, with the scenario's name, each finding.
void PrintSummaryLine(const std::vector<RunResult>& results, const Paint& paint, std::ostream& out);

// The worst of the results.
ExitCode WorstExit(const std::vector<RunResult>& results);

// All of it as a JSON document; docs/scenarios.md describes the form.
//   coverage  of each scene file, or none when nobody asked
void PrintJson(const std::vector<RunResult>& results, const std::vector<Coverage::File>& coverage,
               int exitCode, std::ostream& out);

}  // namespace lab

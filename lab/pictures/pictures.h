// The pictures of a run, as files.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "lab/book/history.h"
#include "lab/names/moments.h"
#include "lab/names/tag_names.h"

namespace lab {

// What a picture says about itself.
struct PictureHead {
    std::string title;
    std::string source;                      // "scenario first_seconds.yaml"
    std::string device;                      // "sm8450"
    std::string scenes;                      // the scene file; may be empty
    Layout layout = Layout::kThreeClusters;  // how opcodes are called
    std::vector<RunFinding> findings;        // what is wrong with the run
    Time origin{};                           // of a trace: what time 0 is on the phone's clock
    Moments moments{};                       // how times are called
};

// Writes the run as a trace in the JSON trace event format, for ui.perfetto.dev and
// chrome://tracing: a lane for each lock holder, counters for floor, ceiling and current frequency
// of each cluster and the GPU, the plug-in's trace sections, requests and log lines as instants.
void WriteTrace(const History& history, const PictureHead& head, std::ostream& out);

// Writes the run as one HTML page that needs no network. Throws std::runtime_error when the page's
// own files, which the lab brings along, cannot be read.
void WriteReport(const History& history, const PictureHead& head, std::ostream& out);

// Writes the run as the JSON that the report's page reads, small enough for a day: texts and lists
// of pairs are told once and referred to by number, times are whole ticks, columns that only rise
// are differences. lab/report/data.js reads it back. Never contains '<', so that it can stand in a
// page.
void WriteReportData(const History& history, const PictureHead& head, std::ostream& out);

// How a lock's term is to end: "for 500 ms", "until released".
std::string TermText(const History::Term& term);

// How a lock ended: "released after 500 ms", "held at the end of the run".
std::string LockEndText(const History::Lock& lock);

}  // namespace lab

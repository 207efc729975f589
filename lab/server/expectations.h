// Compares what a scenario expects with what is so.
#pragma once

#include <string>
#include <vector>

#include "lab/book/book.h"
#include "lab/phone/phone.h"
#include "lab/server/scenario.h"
#include "lab/server/server.h"

namespace lab {

// What a run consists of.
struct RunParts {
    Phone& phone;
    Server& server;
    Book& book;
    const DeviceProfile& device;
    const SceneFile& scenes;
};

// Something that is not as expected.
struct FailedExpectation {
    int line = 0;      // of the scenario
    std::string text;  // "big_max: expected 1651200, found 2227200"
};

// What is not as `expected`.
//   log         what was logged since the last expectation of the log
//   lastResult  that of the request before
// Owners of locks and the log are known on the virtual clock alone: on the real one such
// expectations fail and say so.
std::vector<FailedExpectation> Compare(const RunParts& run, const Expect& expected,
                                       const std::vector<LogLine>& log, int lastResult);

// True when something of the log is expected; in one of the steps.
bool ExpectsLog(const Expect& expected);
bool ExpectsLog(const std::vector<Step>& steps);

}  // namespace lab

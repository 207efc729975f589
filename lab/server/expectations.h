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

class Expectations {
  public:
    explicit Expectations(const RunParts& run) : mRun(run) {}

    // Has the log kept from here on, or no longer; at first it is kept.
    void KeepLog(bool isKept);

    // Every event, once, in order.
    void Observe(const Event& event);

    // What is not as `expected`; `lastResult` is that of the request before. The log is forgotten
    // when something of it was expected. Owners of locks and the log are known on the virtual clock
    // alone: on the real one such expectations fail and say so.
    std::vector<FailedExpectation> Compare(const Expect& expected, int lastResult);

  private:
    const RunParts mRun;
    bool mKeepsLog = true;
    std::vector<LogLine> mLog;
};

// True when something of the log is expected; in one of the steps.
bool ExpectsLog(const Expect& expected);
bool ExpectsLog(const std::vector<Step>& steps);

}  // namespace lab

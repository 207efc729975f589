// Compares what a scenario expects with what is so.
#pragma once

#include <string>
#include <vector>

#include "lab/book/book.h"
#include "lab/phone/phone.h"
#include "lab/server/scenario.h"
#include "lab/server/server.h"

namespace lab {

// Something that is not as expected.
struct FailedExpectation {
    int line = 0;      // of the scenario
    std::string text;  // "big_max: expected 1651200, found 2227200"
};

class Expectations {
  public:
    // Keeps references to all of them.
    Expectations(Phone& phone, Server& server, const Book& book, const DeviceProfile& device,
                 Layout layout)
        : mPhone(phone), mServer(server), mBook(book), mDevice(device), mLayout(layout) {}

    // Has the log kept from here on, or no longer; at first it is kept.
    void KeepLog(bool isKept);

    // Every event, once, in order.
    void Observe(const Event& event);

    // What is not as `expected`; `lastResult` is that of the request before. The log is forgotten
    // when something of it was expected. Owners of locks and the log are known on the virtual clock
    // alone: on the real one such expectations fail and say so.
    std::vector<FailedExpectation> Compare(const Expect& expected, int lastResult);

  private:
    void Fail(int line, const std::string& what, const std::string& wanted,
              const std::string& found);
    void CompareNumber(const ExpectedNumber& expected, int lastResult);
    void CompareTag(const ExpectedTag& expected);
    void CompareLock(const ExpectedLock& expected);
    void CompareLog(const ExpectedLog& expected);
    bool Fits(const PerfHal::Lock& lock, const ExpectedLock& expected) const;
    std::string HeldText(const ExpectedLock& expected) const;

    Phone& mPhone;
    Server& mServer;
    const Book& mBook;
    const DeviceProfile& mDevice;
    const Layout mLayout;
    bool mKeepsLog = true;
    std::vector<LogLine> mLog;
    std::vector<FailedExpectation> mFailed;
};

// True when one of the steps expects something of the log.
bool ExpectsLog(const std::vector<Step>& steps);

}  // namespace lab

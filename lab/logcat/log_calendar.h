// The times of a log's lines: as printed, and as one time that runs from line to line.
#pragma once

#include <optional>
#include <string>

#include "lab/logcat/log_header.h"
#include "lab/logcat/log_reader.h"
#include "lab/phone/clock.h"

namespace lab {

// Turns printed times into one that runs from line to line. logcat leaves the year out, so January
// after December is the next year and 1 March after 28 February is the next day, unless the year is
// printed and says otherwise.
class LogCalendar {
  public:
    // Of the next line, since the first one.
    Time At(const LogStamp& stamp);

    // The time of the line before; 0 when no line has one.
    Time Last() const { return std::chrono::microseconds(mNow); }

  private:
    LogStamp mLast;
    bool mHasLast = false;
    int64_t mDays = 0;
    int64_t mShift = 0;
    int64_t mNow = 0;
};

// Follows the phone's clock from line to line: where a time as printed is in one that only runs
// forward. Clocks are set back and on, and single lines lag.
class LogClock {
  public:
    // Tells of jumps in `capture`, which must outlive it.
    explicit LogClock(Capture& capture) : mCapture(capture) {}

    // Of the next line.
    //   isTimed     it has a time of its own
    //   isAccepted  it is not there a second time
    Time Follow(Time printed, bool isTimed, bool isAccepted);

    // Of the latest line.
    Time Now() const { return mNow; }

  private:
    void Remark(LogProblem remark);

    // A line that is far behind the others; the next one tells whether the clock is.
    struct Lag {
        size_t problem = 0;  // that tells of it
        int line = 0;
        Time back{};
    };

    Capture& mCapture;
    Time mShift{};  // of clocks that were set back
    Time mNow{};
    bool mHasTime = false;
    std::optional<Lag> mLag;
};

// "06-14 19:42:30.125" or "1718.125 s".
std::string StampText(const LogStamp& stamp);

// Since boot or since 1970; nothing without a year.
std::optional<Time> OnClock(const LogStamp& stamp);

}  // namespace lab

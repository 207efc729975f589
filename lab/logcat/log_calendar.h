// The times of a log's lines: as printed, and as one time that runs from line to line.
#pragma once

#include <optional>
#include <string>

#include "lab/logcat/log_header.h"
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

// "06-14 19:42:30.125" or "1718.125 s".
std::string StampText(const LogStamp& stamp);

// Since boot or since 1970; nothing without a year.
std::optional<Time> OnClock(const LogStamp& stamp);

}  // namespace lab

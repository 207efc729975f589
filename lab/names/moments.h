// Moments of a run or a capture, as people write and read them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lab {

// What the clock of a phone shows at time 0: a date and time of day, as a capture prints them.
struct WallClock {
    int year = -1;  // -1: not printed
    int month = 1;
    int day = 1;
    std::chrono::microseconds ofDay{};  // since midnight; more than a day or negative carries over
    bool isLeapYear = false;            // where no year is printed: 29 February has its day
};

// All times are since the start of the run or the first line of the capture.
class Moments {
  public:
    // Of a scenario: seconds since its start. A moment after `end` is refused; none: not known.
    Moments() = default;
    explicit Moments(std::optional<std::chrono::nanoseconds> end) : mEnd(end) {}

    // Of a capture that ends at `end`, or goes on: the clock that it prints, or none.
    Moments(const std::optional<WallClock>& clock, std::optional<std::chrono::nanoseconds> end);

    // "5.120"; on a clock "19:42:30.123", and "06-14 19:42:30.123" where the capture has more than
    // one date or may come to have it. All have the same width, but for seconds above 100000.
    std::string Text(std::chrono::nanoseconds at) const;
    int Width() const;

    // Date, with its year where that is known, and time of day: "06-14 19:42:30.123". Empty without
    // a clock.
    std::string Stamp(std::chrono::nanoseconds at) const;

    // True where times are those of a clock.
    bool HasClock() const { return mIsOnClock; }
    bool HasSeveralDates() const { return mIsDated; }

    // Time 0 on the clock, since 1970 in the clock's own zone; of a year taken for its own where
    // none is printed.
    std::chrono::microseconds Origin() const { return mOrigin; }

    // Reads a moment: "5.200", "5.2s", "5200ms", and on a clock "19:42:30", "19:42:30.5", "19:42",
    // "06-14 19:42:30". Throws std::runtime_error that begins with `option` ("--at") and tells what
    // is wrong and what to write: no moment, a bare whole number (5 may be ms or s), a time of day
    // that there is on several days, a moment outside the run.
    std::chrono::nanoseconds Read(const std::string& option, const std::string& text) const;

  private:
    struct Written;
    [[noreturn]] void Refuse(const std::string& option, const std::string& text,
                             const std::string& why) const;
    std::string RangeText() const;
    std::string Forms() const;
    bool IsWithin(std::chrono::nanoseconds at) const;
    std::vector<std::chrono::nanoseconds> TimesOf(const Written& written) const;
    std::string ClockText(std::chrono::nanoseconds at, bool isDated, bool hasYear) const;

    bool mIsCapture = false;
    bool mIsOnClock = false;
    bool mIsDated = false;
    bool mHasYear = false;
    std::chrono::microseconds mOrigin{};
    std::optional<std::chrono::nanoseconds> mEnd;
};

}  // namespace lab

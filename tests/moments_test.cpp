// How moments of runs and captures are written and read.
#include "lab/names/moments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "lab/logcat/log_reader.h"

namespace lab {
namespace {

using namespace std::chrono_literals;

WallClock At(int year, int month, int day, std::chrono::microseconds ofDay) {
    return {year, month, day, ofDay};
}

// An evening of 40 minutes; one of three days; a night without a year over its end; one with it.
const Moments kEvening(At(-1, 6, 14, 19h + 1min + 12s + 345ms), 40min);
const Moments kThreeDays(At(-1, 6, 14, 12h), 72h);
const Moments kNewYear(At(-1, 12, 31, 23h + 59min), 2min);
const Moments kLeapYear(At(2024, 2, 28, 23h), 48h);
const Moments kGoesOn(At(-1, 6, 14, 19h), std::nullopt);
const Moments kScenario;
const Moments kBrief(std::nullopt, 10s);

struct Reading {
    const Moments& moments;
    const char* text;
    std::chrono::nanoseconds at;  // -1: refused
    const char* stamp;            // as written; of a refusal a part of the words
};

constexpr std::chrono::nanoseconds kRefused(-1);

void PrintTo(const Reading& reading, std::ostream* out) {
    *out << reading.text;
}

class MomentText : public testing::TestWithParam<Reading> {};

TEST_P(MomentText, IsReadAndWritten) {
    const Reading& reading = GetParam();
    try {
        const auto at = reading.moments.Read("--at", reading.text);
        EXPECT_EQ(at.count(), reading.at.count());
        EXPECT_EQ(reading.moments.Text(at), reading.stamp);
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(reading.at, kRefused) << error.what();
        EXPECT_THAT(error.what(), testing::StartsWith(std::string("--at ") + reading.text + ": "));
        EXPECT_THAT(error.what(), testing::HasSubstr(reading.stamp));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Seconds, MomentText,
    testing::Values(
        Reading{kScenario, "5.12", 5120ms, "5.120"}, Reading{kScenario, "5.0", 5s, "5.000"},
        Reading{kScenario, "5s", 5s, "5.000"}, Reading{kScenario, "90ms", 90ms, "0.090"},
        Reading{kScenario, "0", 0s, "0.000"}, Reading{kScenario, "1.5ms", 1500us, "0.002"},
        Reading{kScenario, "5", kRefused, "write 5ms or 5s: both can be meant"},
        Reading{kScenario, "5m", kRefused, "this is no time; write seconds (5.200, 5s)"},
        Reading{kScenario, "-1s", kRefused, "no time"}, Reading{kScenario, "", kRefused, "no time"},
        Reading{kScenario, "1.2.3", kRefused, "no time"},
        Reading{kScenario, "1e3", kRefused, "no time"},
        Reading{kScenario, "0x10", kRefused, "no time"},
        Reading{kScenario, "99999999999999999999s", kRefused, "too late"},
        Reading{kScenario, "19:42", kRefused, "a scenario has no clock; write seconds"},
        Reading{kBrief, "10s", 10s, "10.000"},
        Reading{kBrief, "10.001", kRefused, "not in it: the capture ends at 10.000 s"},
        Reading{kBrief, "19:42:30", kRefused, "prints no date and time of day"}));

INSTANTIATE_TEST_SUITE_P(
    Clock, MomentText,
    testing::Values(
        Reading{kEvening, "19:02:12.345", 60s, "19:02:12.345"},
        Reading{kEvening, "19:02:12.5", 60s + 155ms, "19:02:12.500"},
        Reading{kEvening, "19:30", 28min + 47s + 655ms, "19:30:00.000"},
        Reading{kEvening, "06-14 19:02:12.345", 60s, "19:02:12.345"},
        Reading{kEvening, "06-14T19:02:12.345678", 60s + 678us, "19:02:12.345"},
        Reading{kEvening, "60.0", 60s, "19:02:12.345"},
        // The second of the first line.
        Reading{kEvening, "19:01:12", 0s, "19:01:12.345"},
        Reading{kEvening, "19:01", 0s, "19:01:12.345"},
        Reading{kEvening, "19:01:11", kRefused,
                "not in the capture; the capture is from 06-14 19:01:12.345 to 06-14 19:41:12.345"},
        Reading{kEvening, "19:41:13", kRefused, "not in the capture"},
        Reading{kEvening, "06-15 19:30:00", kRefused, "not in the capture"},
        Reading{kEvening, "41min", kRefused, "no time; write the time that the capture prints"},
        Reading{kEvening, "2403.0", kRefused, "not in it"},
        Reading{kEvening, "30", kRefused, "30ms or 30s"},
        Reading{kEvening, "2024-06-14 19:30:00", kRefused, "prints no year; leave it out"},
        Reading{kEvening, "24:00:00", kRefused, "no time"},
        Reading{kEvening, "19:60:00", kRefused, "no time"},
        Reading{kEvening, "19:30:00.", kRefused, "no time"},
        Reading{kEvening, "00-14 19:30:00", kRefused, "no time"},
        Reading{kEvening, "06-31 19:30:00", kRefused, "not in the capture"},
        Reading{kGoesOn, "19:30", 30min, "06-14 19:30:00.000"},
        Reading{kGoesOn, "18:59:59", kRefused, "the capture begins at 06-14 19:00:00.000"},
        Reading{kThreeDays, "06-15 9:05:00", 21h + 5min, "06-15 09:05:00.000"},
        Reading{kThreeDays, "9:05:00", kRefused,
                "3 times in the capture; write the date, as 06-15 09:05:00.000 or 06-16 09:05"},
        Reading{kNewYear, "00:00:30", 90s, "01-01 00:00:30.000"},
        Reading{kNewYear, "01-01 00:00:30", 90s, "01-01 00:00:30.000"},
        Reading{kNewYear, "12-31 23:59:30", 30s, "12-31 23:59:30.000"},
        Reading{kLeapYear, "02-29 12:00:00", 13h, "02-29 12:00:00.000"},
        Reading{kLeapYear, "2024-03-01 23:00:01", kRefused, "to 2024-03-01 23:00:00.000"},
        Reading{kLeapYear, "2024-03-01 00:00:00", 25h, "03-01 00:00:00.000"},
        Reading{kLeapYear, "2023-02-28 23:30:00", kRefused, "not in the capture"}));

struct Printed {
    const char* log;
    const char* stamp;  // of the last line
};

class CaptureClock : public testing::TestWithParam<Printed> {};

TEST_P(CaptureClock, IsTheOneThatIsPrinted) {
    std::istringstream log(GetParam().log);
    const ReadLines capture = ReadCapture(log, "log.txt");
    EXPECT_EQ(Moments(capture.clock, capture.end).Stamp(capture.end), GetParam().stamp);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, CaptureClock,
    testing::Values(Printed{"06-14 19:42:17.000  1  1 I a: b\n06-15 00:00:00.100  1  1 I a: b\n",
                            "06-15 00:00:00.100"},
                    Printed{"12-31 23:59:59.900  1  1 I a: b\n01-01 00:00:00.100  1  1 I a: b\n",
                            "01-01 00:00:00.100"},
                    Printed{"02-28 23:59:59.900  1  1 I a: b\n02-29 00:00:00.100  1  1 I a: b\n",
                            "02-29 00:00:00.100"},
                    Printed{"02-28 23:59:59.900  1  1 I a: b\n03-01 00:00:00.100  1  1 I a: b\n",
                            "03-01 00:00:00.100"},
                    // Of a zone: as printed, not as UTC.
                    Printed{"2026-06-14 00:42:17.000 +0200  1  1 I a: b\n"
                            "2026-06-14 00:42:18.000 +0200  1  1 I a: b\n",
                            "2026-06-14 00:42:18.000"},
                    Printed{"I/a( 1): b\n", ""}, Printed{"  12.345  1  1 I a: b\n", ""}));

}  // namespace
}  // namespace lab

// The head of a line that logcat prints: when, which process and thread, priority, tag.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace lab {

// The forms of logcat's output that are understood.
enum class LogFormat : uint8_t {
    kThreadtime,  // 06-14 12:34:56.789  1234  1240 I tag     : text
    kTime,        // 06-14 12:34:56.789 I/tag( 1234): text
    kBrief,       // I/tag( 1234): text
    kTag,         // I/tag: text
    kRaw,         // text
    kLong,        // [ 06-14 12:34:56.789  1234: 1240 I/tag ], the text on the lines below
};

// "threadtime", as logcat's -v calls it.
const char* FormatName(LogFormat format);

// A time as printed, cut to whole microseconds. The year is -1 where the format leaves it out and
// month and day are 0 where only seconds are printed (-v epoch, -v monotonic).
struct LogStamp {
    int year = -1;
    int month = 0;
    int day = 0;
    int64_t us = 0;      // since that day's midnight, or all of it without a day
    int64_t zoneUs = 0;  // what `us` lacks of the time as printed: that is in a zone, `us` in UTC
};

struct LogHeader {
    LogFormat format = LogFormat::kThreadtime;
    std::optional<LogStamp> stamp;
    int pid = 0;  // 0: not printed
    int tid = 0;
    int priority = 4;       // Android's: 3 debug, 4 info, 6 error
    std::string_view tag;   // without the blanks around it
    std::string_view text;  // the message; empty for kLong
};

// Reads a line without its newline; the views point into it. -v's additions to threadtime, time and
// long are understood: year, usec, nsec, a zone (the time becomes UTC's), uid, epoch, monotonic.
// Nothing for a line that has no such head.
std::optional<LogHeader> ParseLogHeader(std::string_view line);

// Where a head with a time (threadtime or time) begins in `text`, at `from` or behind it: two lines
// that a tear has made one. npos when there is none.
size_t FindLogHeader(std::string_view text, size_t from);

}  // namespace lab

// Reads a capture of a phone's log: finds the plug-in's lines among those of all programs.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "lab/logcat/log_header.h"
#include "lab/logcat/message_forms.h"
#include "lab/names/moments.h"
#include "lab/phone/clock.h"

namespace lab {

// A line of the plug-in.
struct CapturedLine {
    int line = 0;  // of the capture, 1-based
    // Since the capture's earliest line; lines without a time have that of the line before.
    Time at{};
    int pid = 0;  // 0: not printed
    int tid = 0;
    int priority = 4;  // Android's: 3 debug, 4 info, 6 error
    std::string text;  // printable: what is not is replaced
    MessageMatch match;
};

// Something wrong with the capture, which was read all the same.
struct LogProblem {
    int line = 0;      // 0: the whole capture
    int lastLine = 0;  // of a range; else as `line`
    std::string message;
};

// What is known of a capture as far as it has been read.
struct Capture {
    std::string file;
    std::string entry;  // of a zip: what of it was read
    std::vector<LogProblem> problems;
    std::set<LogFormat> formats;
    Time end{};          // of its last line, since the earliest
    std::string origin;  // the time that counts as 0, as printed; empty without times
    // The same as date and time of day, where the capture prints those: what its times are called.
    std::optional<WallClock> clock;
    // The same on the phone's clock, where all of it is printed: seconds (-v monotonic since boot,
    // -v epoch since 1970) or a date with its year.
    std::optional<Time> onClock;
    size_t lineCount = 0;        // of the capture
    size_t pluginCount = 0;      // of the plug-in
    size_t foreignCount = 0;     // log lines of other programs
    size_t unreadableCount = 0;  // no log lines at all
    bool isWide = false;         // UTF-16, of which nothing can be read
    bool isBugReport = false;    // its system log is read, and nothing else of it
    bool hasUntimed = false;     // a line of the plug-in has no time of its own
    // Of other clocks than the first line's, and times without a line of anybody.
    std::vector<LogProblem> clockRemarks;

    // Adds a problem of the line, or of the one at hand; there is an end to them.
    void TellAt(int line, const std::string& message);
    void Tell(const std::string& message) { TellAt(static_cast<int>(lineCount), message); }
};

// Reads a capture line by line, in memory that does not grow with it.
class LogReader {
  public:
    // `sink` gets the plug-in's lines in the order of their times. Lines may be out of order by up
    // to kOrderWindow; what comes later than that is a clock that was set back, a line that lags,
    // or lines that are there twice. `capture` and what `sink` refers to must outlive the reader.
    LogReader(Capture& capture, std::function<void(const CapturedLine&)> sink);
    ~LogReader();
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

    void Add(std::string_view line);

    // Hands on the lines that are held back for their order: the capture pauses, or has ended.
    void Flush();

    static constexpr Time kOrderWindow = std::chrono::seconds(1);

  private:
    class Work;
    std::unique_ptr<Work> mWork;
};

// All of a capture.
struct ReadLines : Capture {
    std::vector<CapturedLine> lines;  // in the order of their times
};

// Reads all of `in`. Never fails: what cannot be read is counted or among the problems.
//   file     the capture's name, for messages
//   Threads  any
ReadLines ReadCapture(std::istream& in, const std::string& file);

// "FILE:LINE: message", or "FILE:FIRST-LAST: message".
std::string ProblemText(const Capture& capture, const LogProblem& problem);

}  // namespace lab

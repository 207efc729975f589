#include "lab/logcat/log_writer.h"

#include <fmt/format.h>

#include <sstream>

namespace lab {
namespace {

// A server's process, the thread that serves its requests and the one that a timer starts.
constexpr int kProcess = 1147;
constexpr int kRequestThread = 1163;
constexpr int kTimerThread = 1171;

// Where a line has no tag, Android prints the name of the program.
constexpr const char* kProgram = "tarquel_server";

constexpr int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

std::string StampOf(Time at) {
    const int64_t ms = std::chrono::duration_cast<std::chrono::milliseconds>(at).count();
    const int64_t day = ms / 86'400'000 % 365;
    int month = 0;
    while (day >= kDaysBefore[month + 1]) ++month;
    return fmt::format("{:02}-{:02} {:02}:{:02}:{:02}.{:03}", month + 1,
                       day - kDaysBefore[month] + 1, ms / 3'600'000 % 24, ms / 60'000 % 60,
                       ms / 1000 % 60, ms % 1000);
}

char Letter(int priority) {
    constexpr const char* kLetters = "??VDIWEF";
    return priority >= 2 && priority <= 7 ? kLetters[priority] : '?';
}

}  // namespace

LogcatWriter::LogcatWriter(std::ostream& out) : mOut(out) {
    mOut << "--------- beginning of main\n";
}

void LogcatWriter::Observe(const Event& event) {
    if (std::holds_alternative<RequestBegin>(event.what)) mInRequest = true;
    if (std::holds_alternative<RequestEnd>(event.what)) mInRequest = false;
    const LogLine* line = std::get_if<LogLine>(&event.what);
    if (!line) return;
    const std::string head = fmt::format("{} {:5} {:5} {} {:<8}: ", StampOf(event.at), kProcess,
                                         mInRequest ? kRequestThread : kTimerThread,
                                         Letter(line->priority), line->tag.value_or(kProgram));
    // Each line of a message gets a head of its own.
    std::istringstream lines(line->text);
    for (std::string text; std::getline(lines, text);) mOut << head << text << "\n";
}

}  // namespace lab

#include "lab/logcat/log_writer.h"

#include <fmt/format.h>

#include <sstream>

#include "lab/logcat/log_calendar.h"

namespace lab {
namespace {

// A server's process, the thread that serves its requests and the one that a timer starts.
constexpr int kProcess = 1147;
constexpr int kRequestThread = 1163;
constexpr int kTimerThread = 1171;

// Where a line has no tag, Android prints the name of the program.
constexpr const char* kProgram = "tarquel_server";

// Every year is as long as 2023.
std::string StampOf(Time at) {
    namespace chrono = std::chrono;
    const auto days = chrono::floor<chrono::days>(at);
    const chrono::year_month_day date(chrono::sys_days(chrono::year(2023) / chrono::January / 1) +
                                      days % chrono::days(365));
    LogStamp stamp;
    stamp.month = static_cast<int>(static_cast<unsigned>(date.month()));
    stamp.day = static_cast<int>(static_cast<unsigned>(date.day()));
    stamp.us = chrono::duration_cast<chrono::microseconds>(at - days).count();
    return StampText(stamp);
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
    const std::string head =
        fmt::format("{} {:5} {:5} {} {:<8}: ", StampOf(event.at), kProcess,
                    mInRequest ? kRequestThread : kTimerThread, PriorityLetter(line->priority),
                    line->tag.value_or(kProgram));
    // Each line of a message gets a head of its own.
    std::istringstream lines(line->text);
    for (std::string text; std::getline(lines, text);) mOut << head << text << "\n";
}

}  // namespace lab

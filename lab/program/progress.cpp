#include "lab/program/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace lab {
namespace {

constexpr size_t kBarWidth = 24;
constexpr auto kFirstDraw = std::chrono::milliseconds(400);
constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr char kClearLine[] = "\r\033[K";

bool IsTerminal() {
    const char* const terminal = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe)
    return isatty(STDERR_FILENO) != 0 && terminal && std::string_view(terminal) != "dumb";
}

}  // namespace

Progress::Progress(std::string label, size_t requests, bool on)
    : mLabel(std::move(label)),
      mRequests(requests),
      mIsOn(on && requests > 0 && IsTerminal()),
      mNextDraw(WallClock::now() + kFirstDraw) {}

Progress::~Progress() {
    if (mIsDrawn) std::cerr << kClearLine << std::flush;
}

void Progress::Advance(Time now) {
    ++mDone;
    if (!mIsOn) return;
    const auto wall = WallClock::now();
    if (wall < mNextDraw) return;
    mNextDraw = wall + kRedraw;
    mIsDrawn = true;
    std::cerr << kClearLine << BarText(mLabel, mDone, mRequests, now) << std::flush;
}

std::string Progress::BarText(const std::string& label, size_t done, size_t requests, Time now) {
    const size_t shown = std::min(done, requests);
    const size_t filled = shown * kBarWidth / std::max<size_t>(requests, 1);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    return fmt::format("{} [{}{}] {:3} %  {} of {} requests, {}:{:02}:{:02}", label,
                       std::string(filled, '#'), std::string(kBarWidth - filled, '.'),
                       shown * 100 / std::max<size_t>(requests, 1), shown, requests, seconds / 3600,
                       seconds / 60 % 60, seconds % 60);
}

}  // namespace lab

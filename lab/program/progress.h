// A progress bar for a replay that takes a while.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "lab/phone/clock.h"

namespace lab {

class Progress {
  public:
    // Draws on standard error for `label`, when that is a terminal and `on`; else stays silent.
    Progress(std::string label, size_t requests, bool on);

    // Takes the bar away.
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // One request more is done, at `now` of the phone. Draws a few times a second, and not at all
    // in a run that is soon over.
    void Advance(Time now);

    // "first_seconds [#####.....]  50 %  10 of 20 requests, 0:00:12": what is drawn.
    static std::string BarText(const std::string& label, size_t done, size_t requests, Time now);

  private:
    using WallClock = std::chrono::steady_clock;

    const std::string mLabel;
    const size_t mRequests;
    const bool mIsOn;
    size_t mDone = 0;
    bool mIsDrawn = false;
    WallClock::time_point mNextDraw;
};

}  // namespace lab

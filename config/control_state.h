// What the control type (tag 57), the state switch and the breakthrough timer decide.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

namespace tarquel {

// Each field is atomic: the server's threads and the timer's thread meet here. docs/threads.md
// tells who guards what.
struct ControlState {
    // Held while several of the first three change, and by who reads several: no one sees a state
    // that was never in force.
    mutable std::mutex mMutex;
    std::atomic<int32_t> mPerf{1};         // 1: the performance policy owns the limits
    std::atomic<int32_t> mThermal{0};      // thermal level 1 to 4; 0 none, -1 released
    std::atomic<int32_t> mEnableBoost{1};  // 0 disables every acquisition of an action
    std::atomic<int32_t> mState{0};  // state bits that actions' state masks are tested against
    // The number of the thermal breakthrough that is running, 0 for none: each has one of its own,
    // so that the end of one is never taken for the end of the next.
    std::atomic<uint32_t> mBreakThrough{0};
};

}  // namespace tarquel

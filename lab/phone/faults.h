// What is wrong with the phone just now: faults that a test or a scenario injects and lifts again.
//
// They stand between the plug-in and the platform: the kernel and the perf HAL behind them are as
// sound as ever, so that what is right after a fault was lifted can be told from what is not.
// docs/faults.md lists them and what holds under each.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "lab/phone/clock.h"

namespace lab {

// A node as the plug-in finds it under one of its names. One fault at a time.
struct NodeFault {
    enum class Kind : uint8_t {
        kMissing,     // ENOENT when it is opened
        kUnreadable,  // EACCES when it is opened to read
        kUnwritable,  // EACCES when it is opened to write
        kShort,       // a read ends at once; a write takes half the text and has no effect
        kRefusing,    // EINVAL for every value
        kSlow,        // opening it takes `slowMs`
    };
    Kind kind = Kind::kMissing;
    int slowMs = 0;
};

// Which library the plug-in finds when it opens the HAL. In the order of phone.cpp's kHalFolders.
enum class HalLibrary : uint8_t { kWhole, kAbsent, kWithoutAcquire, kWithoutRelease };

// Threads: any.
class Faults {
  public:
    explicit Faults(Clock& clock) : mClock(clock) {}

    // Nothing lifts the node's fault.
    void SetNode(const std::string& path, const std::optional<NodeFault>& fault);
    void LiftNodes();
    std::optional<NodeFault> OnNode(const std::string& path) const;

    // Every call of the HAL takes `ms`; 0 lifts it.
    void SetHalDelay(int ms) { mHalDelayMs = ms; }

    // timer_create fails with EAGAIN, timer_settime with EINVAL.
    void SetTimer(bool failsToCreate, bool failsToSet) {
        mTimerFailsToCreate = failsToCreate;
        mTimerFailsToSet = failsToSet;
    }
    bool TimerFailsToCreate() const { return mTimerFailsToCreate; }
    bool TimerFailsToSet() const { return mTimerFailsToSet; }

    // These properties, and no others, read as if they had never been set.
    void HideProperties(std::set<std::string> names);
    bool IsHidden(const std::string& name) const;

    // Lets the time pass that a slow part takes: on the virtual clock what falls due meanwhile
    // happens meanwhile; on the real one the caller sleeps.
    void PassTime(int ms) const;
    void PassHalDelay() const { PassTime(mHalDelayMs); }

  private:
    Clock& mClock;
    std::atomic<int> mHalDelayMs{0};
    std::atomic<bool> mTimerFailsToCreate{false};
    std::atomic<bool> mTimerFailsToSet{false};
    std::atomic<bool> mHasNodes{false};  // nodes are asked about at every access

    mutable std::mutex mMutex;  // guards what follows
    std::map<std::string, NodeFault> mNodes;
    std::set<std::string> mHiddenProperties;
};

}  // namespace lab

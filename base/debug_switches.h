// Which lines of the log and which sections of a trace are written.
#pragma once

#include <atomic>

namespace tarquel {

// Atomic: any thread may switch while others write.
struct DebugSwitches {
    std::atomic<bool> mDebug{false};         // set by SetDebug
    std::atomic<bool> mVersionDebug{false};  // set once, from "ro.logsystem.usertype"

    bool IsDebug() const { return mDebug.load(std::memory_order_relaxed); }
    bool IsVerbose() const { return IsDebug() || mVersionDebug.load(std::memory_order_relaxed); }
};

}  // namespace tarquel

// The perf-lock client: the two functions of the chip vendor's perf HAL, opened at run time.
#pragma once

#include "base/debug_switches.h"
#include "base/static_mutex.h"

namespace tarquel {

// A handle is 1 or above; 0 means no lock held, -1 a failed acquisition.
inline constexpr int kNoLock = 0;
inline constexpr int kFailedLock = -1;
constexpr bool IsHeldLock(int handle) {
    return handle != kNoLock && handle != kFailedLock;
}

class PerfLockClient {
  public:
    explicit PerfLockClient(const DebugSwitches& switches) : mSwitches(switches) {}

    // Opens the library that "ro.vendor.extension_library" names and finds both functions, or
    // leaves both unavailable. A value with a '/' is refused without a word. One library serves the
    // whole process. Called with Mutex() held.
    static void InitPerfLock();

    // Forgets both functions and closes the library, if it is open. Called with Mutex() held.
    static void CleanUp();

    // Acquires or renews a lock.
    //   handle    0 for a new lock, a held handle to renew it
    //   duration  ms; 0 lasts until released
    //   list      len ints: opcode, value, opcode, value, ...
    //   Returns   the handle; below 1 when the HAL refuses, 0 when it is not there
    //   Threads   any; HAL calls are serialised. The library is looked for again while it is
    //   missing
    int PerfLockAcq(int handle, int duration, int* list, int len);

    // Releases a lock. Threads as PerfLockAcq.
    void PerfLockRel(int handle);

    // Releases `handle` and returns 0; a handle of 0 or -1 holds nothing and is returned as it is.
    int CheckPerfLockHandle(int handle);

    // Serialises every HAL call and the opening and closing of the library: the process's, as the
    // library is.
    static StaticMutex& Mutex();

  private:
    const DebugSwitches& mSwitches;
};

}  // namespace tarquel

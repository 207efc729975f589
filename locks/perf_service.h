// Perf locks by tag: at most one lock for each tag, replaced by the next request for it.
#pragma once

#include <map>

#include "base/debug_switches.h"
#include "base/tags.h"
#include "locks/perf_lock.h"
#include "nodes/tunables.h"

namespace tarquel {

// The value that takes a tag's lock away and leaves the tag without one.
inline constexpr int kNoModification = -1;

// What the HAL takes for a value of `tag`: MHz for CPU (tags below 9, kHz) and GPU (tags 9 and 10,
// Hz) frequencies, truncated; -1 and other tags' values as they are.
constexpr int ToHalValue(int tag, int value) {
    if (value == kNoModification || tag > kTagGpuMax) return value;
    return value / (tag < kTagGpuMin ? 1000 : 1000000);
}

// Threads: callers hold the frequency manager's mutex.
class PerfService {
  public:
    PerfService(const DebugSwitches& switches, const Tunables& tunables, PerfLockClient& perfLock)
        : mSwitches(switches), mTunables(tunables), mPerfLock(perfLock) {}

    // Replaces the tag's lock by one for `value` that lasts until it is replaced; -1 only releases.
    // A tag without opcode, or a core-control tag while isolation is off, changes nothing.
    void PerfServiceSetConfig(int tag, int value);

    // Releases the lock that `handleMap` records for `key`, if it holds one, and records 0.
    void DoHandleMapRelease(std::map<int, int>& handleMap, int key) {
        Release(handleMap[key], key);
    }

  private:
    void Release(int& handle, int key);
    void Replace(int tag, uint32_t opcode, int value);

    const DebugSwitches& mSwitches;
    const Tunables& mTunables;
    PerfLockClient& mPerfLock;
    std::map<int, int> mConfigHandleMap;  // tag -> handle
};

}  // namespace tarquel

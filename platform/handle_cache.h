// The perf locks of event commands: one handle for each (command, index of the action in its
// chain), so that the next "on" renews the lock and an "off" releases it.
#pragma once

#include <map>

#include "platform/adapter_state.h"
#include "platform/perf_lock.h"

namespace tarquel {

class HandleCache {
  public:
    HandleCache(const DebugSwitches& switches, PerfLockClient& perfLock)
        : mSwitches(switches), mPerfLock(perfLock) {}

    // The handle cached for an action, 0 when there is none.
    int GetEventHandle(int cmdId, int index) const;

    // Caches `handle`, whatever it is; a negative command id or index is never cached.
    void CacheHandle(int cmdId, int index, int handle);

    // Releases the cached handle (0 when there is none) and caches 0. Negative ids do nothing.
    void ReleaseHandle(int cmdId, int index);

    // Releases the lock of an event that ends, if it holds one. The end command 5379 ends 5378.
    void DoEventReleaseHandle(int cmdId, int index);

  private:
    struct Key {
        int cmdId;
        int index;
        auto operator<=>(const Key&) const = default;
    };

    const DebugSwitches& mSwitches;
    PerfLockClient& mPerfLock;
    std::map<Key, int> mHandles;
};

}  // namespace tarquel

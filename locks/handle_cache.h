// The perf locks of event commands: one handle for each (command, index of the action in its
// chain), so that the next "on" renews the lock and an "off" releases it.
#pragma once

#include <map>
#include <mutex>

#include "base/debug_switches.h"
#include "locks/perf_lock.h"

namespace tarquel {

// Threads: any. Taking, renewing and releasing an event's lock are one step each: two threads never
// take two locks for one event. No call of the server's happens under the cache's mutex.
class HandleCache {
  public:
    HandleCache(const DebugSwitches& switches, PerfLockClient& perfLock)
        : mSwitches(switches), mPerfLock(perfLock) {}

    // What an acquisition renewed and what it gave.
    struct Renewal {
        int oldHandle;
        int newHandle;
    };

    // Acquires the event's lock, renewing the cached one, and caches what the HAL answers, also a
    // refusal.
    Renewal AcquireForEvent(int cmdId, int index, int durationMs, int* list, int len);

    // Caches `handle`, whatever it is; a negative command id or index is never cached.
    void CacheHandle(int cmdId, int index, int handle);

    // Releases the lock of an event that ends, if it holds one. The end command 5379 ends 5378.
    void DoEventReleaseHandle(int cmdId, int index);

  private:
    struct Key {
        int cmdId;
        int index;
        auto operator<=>(const Key&) const = default;
    };

    int GetEventHandle(const Key& key) const;
    void Store(const Key& key, int handle);

    const DebugSwitches& mSwitches;
    PerfLockClient& mPerfLock;
    std::mutex mMutex;
    std::map<Key, int> mHandles;
};

}  // namespace tarquel

#include "locks/handle_cache.h"

#include <algorithm>
#include <array>

#include "base/ids.h"
#include "base/log.h"

namespace tarquel {

namespace {

// Commands of the touch and scroll family, marked in the log.
constexpr auto kRegularCommands =
    std::to_array<int>({4098, 4099, 4105, 4112, 4116, 4118, 4123, kCmdRegularEvent, 4402});

bool IsRegular(int cmdId) {
    return std::find(kRegularCommands.begin(), kRegularCommands.end(), cmdId) !=
           kRegularCommands.end();
}

}  // namespace

// In log lines a key reads "command-index".

HandleCache::Renewal HandleCache::AcquireForEvent(int cmdId, int index, int durationMs, int* list,
                                                  int len) {
    std::lock_guard lock(mMutex);
    const Key key{cmdId, index};
    const int oldHandle = GetEventHandle(key);
    const int newHandle = mPerfLock.PerfLockAcq(oldHandle, durationMs, list, len);
    Store(key, newHandle);
    return {oldHandle, newHandle};
}

void HandleCache::CacheHandle(int cmdId, int index, int handle) {
    std::lock_guard lock(mMutex);
    Store({cmdId, index}, handle);
}

void HandleCache::DoEventReleaseHandle(int cmdId, int index) {
    if (cmdId == kCmdRegularEventEnd) cmdId = kCmdRegularEvent;
    std::lock_guard lock(mMutex);
    const auto found = mHandles.find({cmdId, index});
    if (found == mHandles.end() || !IsHeldLock(found->second)) return;
    mPerfLock.PerfLockRel(found->second);
    found->second = kNoLock;
    TARQUEL_LOGI_IF(mSwitches.IsDebug(), "tarquel: DoEventReleaseHandle --- CmdId = %d-%d\n", cmdId,
                    index);
}

// The cached handle, 0 when there is none.
int HandleCache::GetEventHandle(const Key& key) const {
    const auto found = mHandles.find(key);
    if (found == mHandles.end()) {
        TARQUEL_LOGD_IF(mSwitches.IsVerbose(),
                        "tarquel: GetEventHandle init handleKey = %d-%d, handle = 0.\n", key.cmdId,
                        key.index);
        return kNoLock;
    }
    TARQUEL_LOGD_IF(mSwitches.IsVerbose(),
                    "tarquel: GetEventHandle handleKey = %d-%d, handle = %d, regularId = %d\n",
                    key.cmdId, key.index, found->second, IsRegular(key.cmdId) ? 1 : 0);
    return found->second;
}

void HandleCache::Store(const Key& key, int handle) {
    if (key.cmdId < 0 || key.index < 0) return;
    mHandles[key] = handle;
    TARQUEL_LOGI_IF(mSwitches.IsDebug(),
                    "tarquel: DoEventCacheHandle +++ cmdId = %d-%d, perfHandle = %d.\n", key.cmdId,
                    key.index, handle);
}

}  // namespace tarquel

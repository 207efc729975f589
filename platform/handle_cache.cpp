#include "platform/handle_cache.h"

#include <algorithm>
#include <array>

#include "platform/command_ids.h"
#include "platform/log.h"

namespace tarquel {

namespace {

// Commands of the touch and scroll family, marked in the log.
constexpr auto kRegularCommands =
    std::to_array<int>({4098, 4099, 4105, 4112, 4116, 4118, 4123, kCmdRegularEvent, 4402});

int RegularId(int cmdId) {
    return std::find(kRegularCommands.begin(), kRegularCommands.end(), cmdId) !=
                   kRegularCommands.end()
               ? 1
               : 0;
}

}  // namespace

// In log lines a key reads "command-index".

int HandleCache::GetEventHandle(int cmdId, int index) const {
    const auto found = mHandles.find({cmdId, index});
    if (found == mHandles.end()) {
        if (mSwitches.IsVerbose()) {
            TARQUEL_LOGD("tarquel: GetEventHandle init handleKey = %d-%d, handle = 0.\n", cmdId,
                         index);
        }
        return kNoLock;
    }
    if (mSwitches.IsVerbose()) {
        TARQUEL_LOGD("tarquel: GetEventHandle handleKey = %d-%d, handle = %d, regularId = %d\n",
                     cmdId, index, found->second, RegularId(cmdId));
    }
    return found->second;
}

void HandleCache::CacheHandle(int cmdId, int index, int handle) {
    if (cmdId < 0 || index < 0) return;
    mHandles[{cmdId, index}] = handle;
    if (mSwitches.IsDebug()) {
        TARQUEL_LOGI("tarquel: DoEventCacheHandle +++ cmdId = %d-%d, perfHandle = %d.\n", cmdId,
                     index, handle);
    }
}

void HandleCache::ReleaseHandle(int cmdId, int index) {
    if (cmdId < 0 || index < 0) return;
    int& handle = mHandles[{cmdId, index}];
    mPerfLock.PerfLockRel(handle);
    handle = kNoLock;
}

void HandleCache::DoEventReleaseHandle(int cmdId, int index) {
    if (cmdId == kCmdRegularEventEnd) cmdId = kCmdRegularEvent;
    const auto found = mHandles.find({cmdId, index});
    if (found == mHandles.end() || !IsHeldLock(found->second)) return;
    ReleaseHandle(cmdId, index);
    if (mSwitches.IsDebug()) {
        TARQUEL_LOGI("tarquel: DoEventReleaseHandle --- CmdId = %d-%d\n", cmdId, index);
    }
}

}  // namespace tarquel

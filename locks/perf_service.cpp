#include "locks/perf_service.h"

#include <array>

#include "base/log.h"
#include "base/trace.h"

namespace tarquel {

void PerfService::PerfServiceSetConfig(int tag, int value) {
    const std::optional<uint32_t> opcode = mTunables.opcodes.Find(tag);
    if (!opcode) {
        TARQUEL_LOGE("tarquel: PerfServiceSetConfig doesn't support this tag[%d]\n", tag);
        return;
    }
    if (IsIsolationTag(tag) && mTunables.clusters.isolation == 0) {
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: isolation switch is off.\n");
        return;
    }
    const int halValue = ToHalValue(tag, value);
    TraceSection section(mSwitches);
    if (section.IsWanted() &&
        !TARQUEL_FORMAT(section.Name(), "PerfServiceSetConfig duration=%d, len=%d, list=0x%0X %d",
                        0, 2, *opcode, halValue)) {
        TARQUEL_LOGE("tarQuel: PerfServiceSetConfig snprintf_s trace_buf error\n");
    }
    section.Begin();
    Replace(tag, *opcode, halValue);
}

void PerfService::Replace(int tag, uint32_t opcode, int value) {
    int& handle = mConfigHandleMap[tag];
    Release(handle, tag);
    if (value == kNoModification) {
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                        "tarquel: default cpu_max_freq is 0xffffffff, no need to modify!\n");
        return;
    }
    std::array<int, 2> list{static_cast<int>(opcode), value};
    handle = mPerfLock.PerfLockAcq(handle, 0, list.data(), static_cast<int>(list.size()));
    TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                    "tarquel: PerfServiceSetConfig tag = %d, PerfLockAcq handle = %d, val[0] = "
                    "0x%08x, val[1] = %d\n",
                    tag, handle, opcode, value);
}

void PerfService::Release(int& handle, int key) {
    if (IsHeldLock(handle)) {
        TARQUEL_LOGD_IF(mSwitches.IsDebug(),
                        "tarquel: DoHandleMapRelease tag = %d, PerfLockRel handle= %d\n", key,
                        handle);
        mPerfLock.PerfLockRel(handle);
        handle = kNoLock;
    } else if (handle == kFailedLock) {
        handle = kNoLock;
        TARQUEL_LOGE("tarquel: tag %d last acquire failed! no need release\n", key);
    } else {
        // Said for a tag's first request too, which has nothing to release: no sign of a fault.
        TARQUEL_LOGE("tarquel: tag %d is not registerd! init handleMap[%d] = %d\n", key, key,
                     kNoLock);
    }
}

}  // namespace tarquel

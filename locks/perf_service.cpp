#include "locks/perf_service.h"

#include <array>
#include <cstring>

#include "base/log.h"
#include "tarquel/securec.h"

namespace tarquel {

int PerfService::PerfServiceSetConfig(int tag, int value) {
    const std::optional<uint32_t> opcode = mOpcodes.Find(tag);
    if (!opcode) {
        TARQUEL_LOGE("tarquel: PerfServiceSetConfig doesn't support this tag[%d]\n", tag);
        return -1;
    }
    if (IsIsolationTag(tag) && mLayout.mIsolationSwitch == 0) {
        if (mSwitches.IsVerbose()) TARQUEL_LOGI("tarquel: isolation switch is off.\n");
        return -1;
    }
    const int halValue = ToHalValue(tag, value);
    bool inSection = false;
    if (mTracer.IsOn()) {
        TextBuffer text{};
        if (snprintf_s(text.data(), text.size(), text.size() - 1,
                       "PerfServiceSetConfig duration=%d, len=%d, list=0x%0X %d", 0, 2, *opcode,
                       halValue) < 0) {
            TARQUEL_LOGE("tarQuel: PerfServiceSetConfig snprintf_s trace_buf error\n");
        }
        inSection = mTracer.TarquelAtraceBegin(text.data(), std::strlen(text.data()));
    }
    Replace(tag, *opcode, halValue);
    if (inSection) mTracer.TarquelAtraceEnd();
    return 0;
}

void PerfService::Replace(int tag, uint32_t opcode, int value) {
    int& handle = mConfigHandleMap[tag];
    Release(handle, tag);
    if (value == kNoModification) {
        if (mSwitches.IsVerbose()) {
            TARQUEL_LOGI("tarquel: default cpu_max_freq is 0xffffffff, no need to modify!\n");
        }
        return;
    }
    std::array<int, 2> list{static_cast<int>(opcode), value};
    handle = mPerfLock.PerfLockAcq(handle, 0, list.data(), static_cast<int>(list.size()));
    if (mSwitches.IsVerbose()) {
        TARQUEL_LOGI(
            "tarquel: PerfServiceSetConfig tag = %d, PerfLockAcq handle = %d, val[0] = 0x%08x, "
            "val[1] = %d\n",
            tag, handle, opcode, value);
    }
}

void PerfService::Release(int& handle, int key) {
    if (IsHeldLock(handle)) {
        if (mSwitches.IsDebug()) {
            TARQUEL_LOGD("tarquel: DoHandleMapRelease tag = %d, PerfLockRel handle= %d\n", key,
                         handle);
        }
        mPerfLock.PerfLockRel(handle);
        handle = kNoLock;
    } else if (handle == kFailedLock) {
        handle = kNoLock;
        TARQUEL_LOGE("tarquel: tag %d last acquire failed! no need release\n", key);
    } else {
        // Meant: said for every request whose tag holds no lock.
        TARQUEL_LOGE("tarquel: tag %d is not registerd! init handleMap[%d] = %d\n", key, key,
                     kNoLock);
    }
}

}  // namespace tarquel

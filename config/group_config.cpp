#include "config/group_config.h"

#include <array>
#include <cstring>

#include "base/client_ids.h"
#include "base/log.h"
#include "tarquel/securec.h"

namespace tarquel {

int GroupConfig::DoGroupPerfSetConfig(int clientId, int tagLen, const int* tags,
                                      const int* configs) {
    const int groupKey = tags[0];
    const int duration = configs[0];
    if (DoGroupPerfRel(groupKey, duration) < 0) return 0;
    if (tagLen < 2) {
        TARQUEL_LOGE("tarquel: DoGroupPerfSetConfig tags not exist.\n");
        return -1;
    }
    const TagValues group = UpdateGroupTagMap(tagLen, tags, configs);
    if (group.IsEmpty()) return 0;

    std::array<int, size_t{2} * kMaxTags> buffer;
    const std::span<int> list(buffer.data(), 2 * group.Size());
    if (!FillList(group, duration, list)) return -1;

    const bool inSection = BeginGroupSection(duration, list);
    const int len = static_cast<int>(list.size());
    int& handle = (duration == 0 ? mUntimedGroupHandleMap : mTimedGroupHandleMap)[groupKey];
    handle = mPerfLock.PerfLockAcq(handle, duration, list.data(), len);
    if (handle < 1) {
        TARQUEL_LOGE(
            "tarquel: DoGroupPerfSetConfig failed! clientId = %d, duration = %d, perfHandle = %d\n",
            clientId, duration, handle);
    } else if (mSwitches.IsVerbose()) {
        // Meant: the group key is what stands behind "clientId" here.
        TARQUEL_LOGI(
            "tarquel: DoGroupPerfSetConfig clientId = %d, duration = %d, newTagLen = %d, "
            "perfHandle = %d\n",
            groupKey, duration, len, handle);
    }
    if (inSection) mTracer.TarquelAtraceEnd();
    return 0;
}

// Releases the group's lock of the kind that `duration` names. -1 when that was all: a cancel.
int GroupConfig::DoGroupPerfRel(int groupKey, int duration) {
    if (duration >= 1) {
        mPerfService.DoHandleMapRelease(mTimedGroupHandleMap, groupKey);
        return 0;
    }
    if (duration == 0) {
        mPerfService.DoHandleMapRelease(mUntimedGroupHandleMap, groupKey);
        return 0;
    }
    if (mSwitches.IsVerbose()) {
        TARQUEL_LOGI("tarquel: DoGroupPerfRel release %d for last duration = 0\n",
                     mUntimedGroupHandleMap[groupKey]);
    }
    mPerfService.DoHandleMapRelease(mUntimedGroupHandleMap, groupKey);
    return -1;
}

// The pairs that the group's lock will hold. Of an untimed group the CPU ceilings are applied here,
// one by one, with locks of their own.
TagValues GroupConfig::UpdateGroupTagMap(int tagLen, const int* tags, const int* configs) {
    const bool isTimed = configs[0] >= 1;
    TagValues group;
    for (int i = 1; i < tagLen; ++i) {
        if (isTimed || !IsCpuMaxTag(tags[i])) {
            *group.Enter(tags[i]).first = configs[i];
        } else if (tags[i] != kTagMiddleMax || mLayout.HasPrimeCluster()) {
            ApplyCpuMax(tagLen, tags[i], configs[i]);
        }
    }
    return group;
}

void GroupConfig::ApplyCpuMax(int tagLen, int tag, int value) {
    const int applied = mRules.UpdateCpuMax(tag, value);
    if (applied == 0) return;
    if (mSwitches.IsVerbose()) {
        TARQUEL_LOGI(
            "tarquel: DoGroup tagLen = %d, tag = %d, val = %d, mPerf = %d, mThermal = %d, "
            "mEnable = %d\n",
            tagLen, tag, applied, mControl.mPerf.load(), mControl.mThermal.load(),
            mControl.mEnableBoost.load());
    }
    // Unlike a single tag's write, this one is not kept from the next write-back.
    mRules.WriteUnlessOwned(tag, applied, FreqRules::Mark::kNone);
    mPerfService.PerfServiceSetConfig(tag, applied);
}

// False, with a log line, when the group has a core-control tag while isolation is off.
bool GroupConfig::FillList(const TagValues& group, int duration, std::span<int> list) {
    size_t at = 0;
    for (const auto& [tag, value] : group) {
        const uint32_t opcode = mOpcodes.Get(tag);
        if (IsIsolationTag(tag) && mLayout.mIsolationSwitch == 0) {
            TARQUEL_LOGE("tarquel: isolation switch is off.\n");
            return false;
        }
        const int halValue = ToHalValue(tag, value);
        list[at++] = static_cast<int>(opcode);
        list[at++] = halValue;
        if (mSwitches.IsDebug()) {
            TARQUEL_LOGD(
                "tarquel: DoGroupPerfSetConfig duration = %d, tag = %3d, opcodes = 0x%8X, "
                "configVal = %d\n",
                duration, tag, opcode, halValue);
        }
    }
    return true;
}

// Opens the section of one acquisition. False when there is none to close: tracing is off or the
// text does not fit.
bool GroupConfig::BeginGroupSection(int duration, std::span<const int> list) const {
    if (!mTracer.IsOn()) return false;
    TextBuffer listText;
    if (!FormatPerfList(list, listText)) {
        TARQUEL_LOGE("tarQuel: DoGroupPerfSetConfig snprintf_s trace_arg_buf error\n");
        return false;
    }
    TextBuffer text;
    if (snprintf_s(text.data(), text.size(), text.size() - 1,
                   "DoGroupPerfSetConfig duration=%d, len=%d, %s", duration,
                   static_cast<int>(list.size()), listText.data()) < 0) {
        TARQUEL_LOGE("tarQuel: DoGroupPerfSetConfig snprintf_s trace_buf error\n");
        return false;
    }
    return mTracer.TarquelAtraceBegin(text.data(), std::strlen(text.data()));
}

}  // namespace tarquel

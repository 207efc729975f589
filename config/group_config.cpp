#include "config/group_config.h"

#include <array>

#include "base/log.h"
#include "base/trace.h"

namespace tarquel {

void GroupConfig::DoGroupPerfSetConfig(int clientId, int tagLen, const int* tags,
                                       const int* configs) {
    const int groupKey = tags[0];
    const int duration = configs[0];
    if (!DoGroupPerfRel(groupKey, duration)) return;
    if (tagLen < 2) {
        TARQUEL_LOGE("tarquel: DoGroupPerfSetConfig tags not exist.\n");
        return;
    }
    const TagValues group = UpdateGroupTagMap(tagLen, tags, configs);
    if (group.IsEmpty()) return;

    std::array<int, size_t{2} * kMaxTags> buffer;
    const std::span<int> list(buffer.data(), 2 * group.Size());
    if (!FillList(group, duration, list)) return;

    TraceSection section(mSwitches);
    section.BeginWithList("DoGroupPerfSetConfig", duration, list);
    const int len = static_cast<int>(list.size());
    int& handle = (duration == 0 ? mUntimedGroupHandleMap : mTimedGroupHandleMap)[groupKey];
    handle = mPerfLock.PerfLockAcq(handle, duration, list.data(), len);
    if (handle < 1) {
        TARQUEL_LOGE(
            "tarquel: DoGroupPerfSetConfig failed! clientId = %d, duration = %d, perfHandle = %d\n",
            clientId, duration, handle);
    } else {
        // Behind "clientId" stands the group key: several clients may share a group.
        TARQUEL_LOGI_IF(
            mSwitches.IsVerbose(),
            "tarquel: DoGroupPerfSetConfig clientId = %d, duration = %d, newTagLen = %d, "
            "perfHandle = %d\n",
            groupKey, duration, len, handle);
    }
}

// Releases the group's lock of the kind that `duration` names. False when that was all: a cancel.
bool GroupConfig::DoGroupPerfRel(int groupKey, int duration) {
    TARQUEL_LOGI_IF(duration < 0 && mSwitches.IsVerbose(),
                    "tarquel: DoGroupPerfRel release %d for last duration = 0\n",
                    mUntimedGroupHandleMap[groupKey]);
    mPerfService.DoHandleMapRelease(duration >= 1 ? mTimedGroupHandleMap : mUntimedGroupHandleMap,
                                    groupKey);
    return duration >= 0;
}

// The pairs that the group's lock will hold. Of an untimed group the CPU ceilings are applied here,
// one by one, with locks of their own.
TagValues GroupConfig::UpdateGroupTagMap(int tagLen, const int* tags, const int* configs) {
    const bool isTimed = configs[0] >= 1;
    TagValues group;
    for (int i = 1; i < tagLen; ++i) {
        if (isTimed || !IsCpuCeilingTag(tags[i])) {
            *group.Enter(tags[i]).first = configs[i];
        } else if (const LimitTags& limit = *FindLimitTags(tags[i]); mTunables.Has(limit)) {
            ApplyCeiling(tagLen, limit, configs[i]);
        }
    }
    return group;
}

void GroupConfig::ApplyCeiling(int tagLen, const LimitTags& limit, int value) {
    const int applied = mRules.UpdateMaxCpuFreq(value, limit);
    if (applied == 0) return;
    TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                    "tarquel: DoGroup tagLen = %d, tag = %d, val = %d, mPerf = %d, mThermal = %d, "
                    "mEnable = %d\n",
                    tagLen, limit.ceiling, applied, mControl.mPerf.load(), mControl.mThermal.load(),
                    mControl.mEnableBoost.load());
    // Unlike a single tag's write, this one is not kept from the next write-back.
    mRules.WriteUnlessOwned(limit.ceiling, applied, FreqRules::Mark::kNone);
    mPerfService.PerfServiceSetConfig(limit.ceiling, applied);
}

// False, with a log line, when the group has a core-control tag while isolation is off.
bool GroupConfig::FillList(const TagValues& group, int duration, std::span<int> list) {
    size_t at = 0;
    for (const auto& [tag, value] : group) {
        const uint32_t opcode = mTunables.opcodes.Get(tag);
        if (IsIsolationTag(tag) && mTunables.clusters.isolation == 0) {
            TARQUEL_LOGE("tarquel: isolation switch is off.\n");
            return false;
        }
        const int halValue = ToHalValue(tag, value);
        list[at++] = static_cast<int>(opcode);
        list[at++] = halValue;
        TARQUEL_LOGD_IF(mSwitches.IsDebug(),
                        "tarquel: DoGroupPerfSetConfig duration = %d, tag = %3d, opcodes = 0x%8X, "
                        "configVal = %d\n",
                        duration, tag, opcode, halValue);
    }
    return true;
}

}  // namespace tarquel

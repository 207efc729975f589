#include "config/config_setter.h"

#include "base/ids.h"
#include "base/log.h"
#include "base/tags.h"

namespace tarquel {

namespace {

// Tags that go to the HAL as they are: no zero test, no node write.
constexpr bool IsPassThrough(int tag) {
    return (tag >= 61 && tag <= 72) || (tag >= 81 && tag <= 97) || (tag >= 99 && tag <= 104) ||
           (tag >= 108 && tag <= 124) || (tag >= 130 && tag <= 133);
}

// Requests after which the thermal ceilings are written back. The GPU's is none of them.
bool TouchesCeilings(int tag, int value) {
    return IsCpuCeilingTag(tag) || (tag == kTagControlType && value != 0);
}

}  // namespace

void ConfigSetter::DoRealPerfSetConfig(int clientId, int tagLen, const int* tags,
                                       const int* newConfigs) {
    if (tags[0] == kTagGroup) {
        mGroup.DoGroupPerfSetConfig(clientId, tagLen, tags, newConfigs);
        return;
    }
    const uint32_t breakthroughBefore = mControl.mBreakThrough;
    bool touchesCeilings = false;
    for (int i = 0; i < tagLen; ++i) {
        const int tag = tags[i];
        int value = newConfigs[i];
        touchesCeilings = touchesCeilings || TouchesCeilings(tag, value);
        if (Resolve(tag, value)) Apply(tagLen, tag, value);
    }
    if (mControl.mPerf != 0 || clientId != kClientTemp || !touchesCeilings) return;
    // Also when a breakthrough began meanwhile: the marks of this request are none of its end's.
    const uint32_t running = mControl.mBreakThrough;
    if (running == 0 || running != breakthroughBefore) mScaling.WriteAllScaling();
}

bool ConfigSetter::Resolve(int tag, int& value) {
    if (tag == kTagControlType) {
        mControlType.SetControlType(value);
        return false;
    }
    if (IsPassThrough(tag)) return true;
    const LimitTags* const limit = FindLimitTags(tag);
    if (limit != nullptr && !mRules.Has(*limit)) {
        value = 0;
    } else if (limit != nullptr) {
        value = tag == limit->floor ? mRules.UpdateMinCpuFreq(value, *limit)
                                    : mRules.UpdateMaxCpuFreq(value, *limit);
    }
    if (value != 0) return true;
    TARQUEL_LOGE("tarquel: tag = %d, %s\n", tag, "configVal is 0");
    return false;
}

void ConfigSetter::Apply(int tagLen, int tag, int value) {
    TARQUEL_LOGI_IF(
        mSwitches.IsVerbose(),
        "tarquel: SetConfig tagLen = %d, tag = %d, val = %d, mPerf = %d, mThermal = %d, "
        "mEnable = %d\n",
        tagLen, tag, value, mControl.mPerf.load(), mControl.mThermal.load(),
        mControl.mEnableBoost.load());
    if (!IsPassThrough(tag)) mRules.WriteUnlessOwned(tag, value, FreqRules::Mark::kWritten);
    mPerfService.PerfServiceSetConfig(tag, value);
}

}  // namespace tarquel

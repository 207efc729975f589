#include "config/config_setter.h"

#include "base/client_ids.h"
#include "base/log.h"

namespace tarquel {

namespace {

// Tags that go to the HAL as they are: no zero test, no node write.
constexpr bool IsPassThrough(int tag) {
    return (tag >= 61 && tag <= 72) || (tag >= 81 && tag <= 97) || (tag >= 99 && tag <= 104) ||
           (tag >= 108 && tag <= 124) || (tag >= 130 && tag <= 133);
}

}  // namespace

int ConfigSetter::DoRealPerfSetConfig(int clientId, int tagLen, const int* tags,
                                      const int* newConfigs) {
    const bool isGroup = tagLen > 0 && tags[0] == kTagGroup;
    bool touchesMax = false;
    for (int i = 0; !isGroup && i < tagLen; ++i) {
        const int tag = tags[i];
        const Resolved resolved = Resolve(tag, newConfigs[i]);
        touchesMax = touchesMax || resolved.touchesMax;
        if (resolved.kind == Resolved::Kind::kSkip) continue;
        if (mSwitches.IsVerbose()) {
            TARQUEL_LOGI(
                "tarquel: SetConfig tagLen = %d, tag = %d, val = %d, mPerf = %d, mThermal = %d, "
                "mEnable = %d\n",
                tagLen, tag, resolved.value, mControl.mPerf.load(), mControl.mThermal.load(),
                mControl.mEnableBoost.load());
        }
        if (resolved.kind == Resolved::Kind::kNodeAndLock) {
            mRules.WriteUnlessOwned(tag, resolved.value, FreqRules::Mark::kWritten);
        }
        mPerfService.PerfServiceSetConfig(tag, resolved.value);
    }
    if (mControl.mPerf == 0 && !mControl.mBreakThrough && clientId == kClientTemp && touchesMax) {
        mScaling.WriteAllScaling();
    }
    if (isGroup) mGroup.DoGroupPerfSetConfig(clientId, tagLen, tags, newConfigs);
    return 0;
}

ConfigSetter::Resolved ConfigSetter::Resolve(int tag, int value) {
    if (tag == kTagControlType) {
        mControlType.SetControlType(value);
        return {Resolved::Kind::kSkip, value, value != 0};
    }
    if (IsPassThrough(tag)) return {Resolved::Kind::kLockOnly, value, false};
    if (!mLayout.HasPrimeCluster() && (tag == kTagMiddleMin || tag == kTagMiddleMax)) {
        LogZero(tag);
        return {Resolved::Kind::kSkip, value, tag == kTagMiddleMax};
    }
    const Resolved resolved = ResolveLimit(tag, value);
    if (resolved.value != 0) return resolved;
    LogZero(tag);
    return {Resolved::Kind::kSkip, 0, resolved.touchesMax};
}

// What becomes of a tag's value under the rules between floor and ceiling.
ConfigSetter::Resolved ConfigSetter::ResolveLimit(int tag, int value) {
    bool touchesMax = false;
    switch (tag) {
        case kTagLittleMin:
            value = mRules.UpdateMinCpuFreq(value, mRecords.little);
            break;
        case kTagMiddleMin:
            value = mRules.UpdateMinCpuFreq(value, mRules.Middle());
            break;
        case kTagLastMin:
            value = mRules.UpdateMinCpuFreq(value, mRules.Last());
            break;
        case kTagGpuMin:
            value = mRules.UpdateMinCpuFreq(value, mRecords.gpu);
            break;
        case kTagLittleMax:
        case kTagMiddleMax:
        case kTagLastMax:
            value = mRules.UpdateCpuMax(tag, value);
            touchesMax = true;
            break;
        case kTagGpuMax:
            // Meant: no CPU ceiling is touched, so nothing is written back for it.
            value = mRules.UpdateMaxCpuFreq(value, mRecords.gpu, kTagGpuMin, kTagGpuMax);
            break;
        default:
            break;
    }
    return {Resolved::Kind::kNodeAndLock, value, touchesMax};
}

void ConfigSetter::LogZero(int tag) const {
    TARQUEL_LOGE("tarquel: tag = %d, %s\n", tag, "configVal is 0");
}

}  // namespace tarquel

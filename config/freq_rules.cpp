#include "config/freq_rules.h"

#include "base/log.h"

namespace tarquel {

int FreqRules::UpdateMinCpuFreq(int value, const LimitTags& limit) {
    CPUFREQ& freq = mTunables.RecordOf(limit.domain);
    if (value == 0) {
        value = freq.defaultMinFreq;
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: reset setMinCpuFreq = %d.\n", value);
    } else if (value > freq.mMaxFreq) {
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: setMinCpuFreq > cpuFreq.mMaxFreq.\n");
        value = freq.mMaxFreq;
    }
    freq.mMinFreq = value;
    return value;
}

int FreqRules::UpdateMaxCpuFreq(int value, const LimitTags& limit) {
    CPUFREQ& freq = mTunables.RecordOf(limit.domain);
    if (value == 0) {
        value = freq.cpuinfoMaxFreq;
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: reset setMaxCpuFreq = %d.\n", value);
    } else if (freq.mMinFreq > value) {
        if (mControl.mPerf == 0) mTunables.WriteIfHeld(limit.floor, value);
        freq.mMinFreq = value;
        mPerfService.PerfServiceSetConfig(limit.floor, value);
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: setMaxCpuFreq < cpuFreq.mMinFreq.\n");
    }
    freq.mMaxFreq = value;
    if (value != freq.cpuinfoMaxFreq) return value;

    const auto turn = mScaling.TakeTurn(limit.ceiling);
    if (mTunables.WriteIfHeld(limit.ceiling, value)) {
        mScaling.MarkWritten(limit.ceiling);
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: tagMax = %d, setMaxCpuFreq = %d.\n",
                        limit.ceiling, value);
    }
    // A CPU ceiling at its default needs no lock; the GPU's keeps one.
    return limit.domain == LimitTags::kGpu ? value : kNoModification;
}

void FreqRules::WriteUnlessOwned(int tag, int value, Mark mark) {
    if (value == kNoModification || mControl.mPerf != 0) return;
    const auto turn = mScaling.TakeTurn(tag);
    if (mControl.mBreakThrough != 0) return;
    if (!mTunables.WriteIfHeld(tag, value)) {
        TARQUEL_LOGE("tarquel: tag = %d not in mCpuNodeMap\n", tag);
    } else if (mark == Mark::kWritten) {
        mScaling.MarkWritten(tag);
    }
}

}  // namespace tarquel

#include "config/freq_rules.h"

#include "base/client_ids.h"
#include "base/log.h"

namespace tarquel {

int FreqRules::UpdateMinCpuFreq(int value, CPUFREQ& freq) {
    if (value == 0) {
        value = freq.defaultMinFreq;
        if (mSwitches.IsVerbose()) TARQUEL_LOGI("tarquel: reset setMinCpuFreq = %d.\n", value);
    } else if (value > freq.mMaxFreq) {
        if (mSwitches.IsVerbose()) TARQUEL_LOGI("tarquel: setMinCpuFreq > cpuFreq.mMaxFreq.\n");
        value = freq.mMaxFreq;
    }
    freq.mMinFreq = value;
    return value;
}

int FreqRules::UpdateMaxCpuFreq(int value, CPUFREQ& freq, int tagMin, int tagMax) {
    if (value == 0) {
        value = freq.cpuinfoMaxFreq;
        if (mSwitches.IsVerbose()) TARQUEL_LOGI("tarquel: reset setMaxCpuFreq = %d.\n", value);
    } else if (freq.mMinFreq > value) {
        const NodePaths* floorNode = mNodes.Find(tagMin);
        if (mControl.mPerf == 0 && floorNode != nullptr) mIo.WriteNode(*floorNode, value);
        freq.mMinFreq = value;
        mPerfService.PerfServiceSetConfig(tagMin, value);
        if (mSwitches.IsVerbose()) TARQUEL_LOGI("tarquel: setMaxCpuFreq < cpuFreq.mMinFreq.\n");
    }
    freq.mMaxFreq = value;
    if (value != freq.cpuinfoMaxFreq) return value;

    if (const NodePaths* ceilingNode = mNodes.Find(tagMax)) {
        const auto turn = mScaling.TakeTurn(tagMax);
        mIo.WriteNode(*ceilingNode, value);
        mScaling.MarkWritten(tagMax);
        if (mSwitches.IsVerbose()) {
            TARQUEL_LOGI("tarquel: tagMax = %d, setMaxCpuFreq = %d.\n", tagMax, value);
        }
    }
    // A CPU ceiling at its default needs no lock; the GPU's keeps one.
    return tagMax == kTagGpuMax ? value : kNoModification;
}

int FreqRules::UpdateCpuMax(int tag, int value) {
    switch (tag) {
        case kTagLittleMax:
            return UpdateMaxCpuFreq(value, mRecords.little, kTagLittleMin, kTagLittleMax);
        case kTagMiddleMax:
            return UpdateMaxCpuFreq(value, Middle(), kTagMiddleMin, kTagMiddleMax);
        default:
            return UpdateMaxCpuFreq(value, Last(), kTagLastMin, kTagLastMax);
    }
}

void FreqRules::WriteUnlessOwned(int tag, int value, Mark mark) {
    if (value == kNoModification || mControl.mPerf != 0) return;
    const auto turn = mScaling.TakeTurn(tag);
    if (mControl.mBreakThrough != 0) return;
    const NodePaths* node = mNodes.Find(tag);
    if (node == nullptr) {
        TARQUEL_LOGE("tarquel: tag = %d not in mCpuNodeMap\n", tag);
        return;
    }
    mIo.WriteNode(*node, value);
    if (mark == Mark::kWritten) mScaling.MarkWritten(tag);
}

}  // namespace tarquel

#include "config/control_type.h"

#include "base/log.h"
#include "tarquel/jank_log.h"

namespace tarquel {

namespace {

constexpr int kThermalReleased = -1;
constexpr int kJankPriority = 3;
constexpr int kJankId = 361;

}  // namespace

void ControlType::SetControlType(int type) {
    const int unchanged = mControl.mEnableBoost;
    switch (type) {
        case 0:
            Enter(1, 0, 1);
            WriteDefaultCeilings();
            break;
        case 2:
        case 9:
            ReleaseThermal(unchanged);
            break;
        case 4:
        case 10:
            ReleaseThermal(0);
            break;
        case 5:
            Enter(1, 1, unchanged);
            break;
        case 6:
        case 7:
        case 8:
            Enter(0, type - 4, unchanged);  // thermal level 2, 3, 4
            break;
    }
    const int enableBoost = mControl.mEnableBoost;
    TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: SetControlType config %d, mEnableBoost %d\n",
                    type, enableBoost);
    __zqlog_jank_print(kJankPriority, kJankId, "#EB:%d#PBP:%d", enableBoost, mControl.mPerf.load());
}

void ControlType::Enter(int perf, int thermal, int enableBoost) {
    std::lock_guard lock(mControl.mMutex);
    mControl.mPerf = perf;
    mControl.mThermal = thermal;
    mControl.mEnableBoost = enableBoost;
}

void ControlType::ReleaseThermal(int enableBoost) {
    Enter(0, kThermalReleased, enableBoost);
    // Nothing is put back: the limits are just being set.
    mTimer.Cancel();
}

void ControlType::WriteDefaultCeilings() {
    for (const LimitTags& limit : kLimitTags) {
        if (limit.domain == LimitTags::kGpu || !mTunables.Has(limit)) continue;
        const auto turn = mScaling.TakeTurn(limit.ceiling);
        mTunables.Write(limit.ceiling, mTunables.RecordOf(limit.domain).cpuinfoMaxFreq);
    }
}

}  // namespace tarquel

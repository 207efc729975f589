#include "actions/action_executor.h"

#include <algorithm>
#include <array>
#include <span>

#include "base/action_list.h"
#include "base/ids.h"
#include "base/log.h"
#include "base/tags.h"
#include "base/trace.h"
#include "tarquel/on_demand_boost_server.h"

namespace tarquel {

namespace {

// What one call of the HAL takes.
constexpr int kMaxListInts = 64;

// How deep scenes may re-enter DoAction, and how often within one request, before they are refused:
// far above any sensible scene, far below the stack and the patience of a server thread.
constexpr int kMaxReentryDepth = 32;
constexpr int kMaxReentries = 1000;

// One re-entry of DoAction on this thread.
class Reentry {
  public:
    Reentry() {
        ++sDepth;
        ++sCount;
    }
    ~Reentry() {
        if (--sDepth == 0) sCount = 0;
    }
    Reentry(const Reentry&) = delete;
    Reentry& operator=(const Reentry&) = delete;

    bool IsAllowed() const { return sDepth <= kMaxReentryDepth && sCount <= kMaxReentries; }

  private:
    static inline thread_local int sDepth = 0;
    static inline thread_local int sCount = 0;
};

constexpr int kBreakthroughDefaultMs = 3000;

}  // namespace

int ActionExecutor::DoAction(const Action& first, const Payload& payload) {
    if (IsEndlessChain(first)) return -1;
    int result = 0;
    int index = 0;
    for (const Action* action = &first; action != nullptr; action = action->next, ++index) {
        if (action->skip != 0 || action->duration < 0) continue;
        if (action->stateMask >= 1 && (action->stateMask & mControl.mState) == 0) continue;

        const int cmdId = action->cmdId;
        const int done = PerfServiceAcq(*action, index, payload);
        if (done == 0) {
            const bool isLogged = mSwitches.IsDebug() && cmdId != kCmdQuietOnSuccess;
            TARQUEL_LOGI_IF(isLogged && payload.first == nullptr,
                            "tarquel: DoAction ret = %d, cmdId = %d, payloadNum = %d\n", done,
                            cmdId, payload.count);
            TARQUEL_LOGI_IF(
                isLogged && payload.first != nullptr,
                "tarquel: DoAction ret = %d, cmdId = %d, payloadNum = %d, payload = %d\n", done,
                cmdId, payload.count, payload.first[0]);
        } else if (done != 1) {
            result = -1;
        }
    }
    return result;
}

int ActionExecutor::PerfServiceAcq(const Action& action, int index, const Payload& payload) {
    const int cmdId = action.cmdId;
    if (cmdId == kNoCommand) {
        TARQUEL_LOGE("tarquel: PerfServiceAcq failed, action is NULL!\n");
        return -2;
    }
    if (mControl.mEnableBoost == 0) {
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                        "tarquel: PerfServiceAcq disable boost---low temperature!\n");
        return 0;
    }
    // The end of an event needs no list: whatever it holds, its lock is released.
    const bool isScene = IsLongTermScene(cmdId) && action.duration == 0;
    if ((isScene || !payload.Is(kEventOff)) && IsCutShort(action)) return -3;
    if (!payload.IsOnOrOff()) StartBreakthroughIfAllowed(action, action.duration);
    if (isScene) return DoOnOffAction(action, payload);
    if (payload.Is(kEventOff)) {
        mHandles.DoEventReleaseHandle(cmdId, index);
        return 1;
    }
    if (cmdId == kCmdRegularEventEnd) mHandles.DoEventReleaseHandle(cmdId, index);

    const std::span<const int> pairs = PerfPairs(action);
    if (pairs.empty()) return -3;
    const int len = static_cast<int>(std::min<size_t>(pairs.size(), kMaxListInts));
    const int durationMs = OnDemandDuration(cmdId, action.duration, payload.first);
    std::array<int, kMaxListInts> list{};
    std::copy_n(pairs.begin(), len, list.begin());
    if (payload.Is(kEventOn)) StartBreakthroughIfAllowed(action, durationMs);

    TraceSection section(mSwitches);
    section.BeginWithList("PerfServiceAcq", durationMs, {list.data(), static_cast<size_t>(len)});
    int oldHandle = kNoLock;
    int newHandle = kNoLock;
    if (cmdId == kCmdRegularEvent || payload.Is(kEventOn)) {
        const HandleCache::Renewal renewal =
            mHandles.AcquireForEvent(cmdId, index, durationMs, list.data(), len);
        oldHandle = renewal.oldHandle;
        newHandle = renewal.newHandle;
    } else if (durationMs < 1) {
        newHandle = AcquireCommonLock(cmdId, durationMs, list.data(), len);
    } else {
        newHandle = mPerfLock.PerfLockAcq(kNoLock, durationMs, list.data(), len);
    }
    LogAcquired(action, oldHandle, newHandle, durationMs);
    return 0;
}

int ActionExecutor::AcquireCommonLock(int cmdId, int durationMs, int* list, int len) {
    std::lock_guard lock(mCommonMutex);
    if (IsHeldLock(mCommonHandle)) mPerfLock.PerfLockRel(mCommonHandle);
    mCommonHandle = mPerfLock.PerfLockAcq(kNoLock, durationMs, list, len);
    TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: PerfLockAcq cmdId = %d, mCommonHandle = %d\n",
                    cmdId, mCommonHandle);
    return mCommonHandle;
}

void ActionExecutor::LogAcquired(const Action& action, int oldHandle, int newHandle,
                                 int durationMs) const {
    if (newHandle < 1) {
        TARQUEL_LOGE(
            "tarquel: PerfLockAcq failed! cmdId = %d, oldHandle = %d, updateHandle = %d, "
            "duration = %d\n",
            action.cmdId, oldHandle, newHandle, durationMs);
    } else {
        TARQUEL_LOGI_IF(
            mSwitches.IsVerbose() && action.cmdId != kCmdQuietOnSuccess,
            "tarquel: PerfLockAcq cmdId = %d, oldHandle = %d, updateHandle = %d, tagLen "
            "= %d, duration = %d\n",
            action.cmdId, oldHandle, newHandle, action.tagLen, durationMs);
    }
}

// An action that may break through the thermal limit in force lifts it for its time.
void ActionExecutor::StartBreakthroughIfAllowed(const Action& action, int durationMs) {
    const int thermal = mControl.mThermal;
    if (thermal < 1 || action.boostLimitLevel < thermal || action.breakThrough == 0) return;
    if (durationMs != 0 && action.cmdId == kCmdRegularEventEnd) mTimer.Disarm();
    mTimer.Start(durationMs == 0 ? kBreakthroughDefaultMs : durationMs);
}

int ActionExecutor::OnDemandDuration(int cmdId, int durationMs, const int* payload) const {
    const int wanted = OnDemandBoostServer::getInstance().GetDuration(cmdId, durationMs, payload);
    if (wanted < 1) return durationMs;
    TARQUEL_LOGI_IF(mSwitches.IsVerbose(), "tarquel: cmdId = %d, onDemandDuration = %d\n", cmdId,
                    wanted);
    return wanted;
}

void ActionExecutor::SavePerfVal(const QcomAction& action, const int* payload, int& duration,
                                 int* list, int& len) const {
    if (len < 0 || (list == nullptr && len > 0)) {
        TARQUEL_LOGE("tarquel: SavePerfVal invalid request, cmdId is %d, len is %d\n", action.cmdId,
                     len);
        return;
    }
    duration = OnDemandDuration(action.cmdId, duration, payload);
    const auto held = static_cast<int64_t>(action.perfList.size());
    len = static_cast<int>(std::min<int64_t>({len, kMaxListInts, held}));
    if (len > 0) std::copy_n(action.perfList.begin(), len, list);
}

int ActionExecutor::DoOnOffAction(const Action& action, const Payload& payload) {
    const int cmdId = action.cmdId;
    if (!payload.IsOnOrOff()) {
        TARQUEL_LOGE("tarquel: invalid special scene parameters, cmdId is %d\n", cmdId);
        return -1;
    }
    const std::span<const int> pairs = PerfPairs(action);
    if (pairs.size() / 2 > kMaxScenePairs) {
        TARQUEL_LOGE("tarquel: invalid parameters, cmdId is %d\n", cmdId);
        return -1;
    }
    std::array<int, kMaxScenePairs> tags{};
    std::array<int, kMaxScenePairs> configs{};
    size_t kept = 0;
    bool runAgain = false;
    for (size_t i = 0; i < pairs.size(); i += 2) {
        const int tag = pairs[i];
        const int value = pairs[i + 1];
        if (value < 0) {
            TARQUEL_LOGE("tarquel: invalid parameters, cmdId is %d\n", cmdId);
            return -1;
        }
        TARQUEL_LOGI_IF(value == 0 && mSwitches.IsVerbose(),
                        "tarquel: tag %d value is 0, cmdId is %d\n", tag, cmdId);
        if (tag == kTagRunAgain) {
            runAgain = true;
            continue;
        }
        tags[kept] = tag;
        configs[kept] = value;
        ++kept;
        TARQUEL_LOGD_IF(mSwitches.IsVerbose(),
                        "tarquel: DoOnOffAction tagLen = %d, setTagLen = %d, setTags = %d, "
                        "setConfigs = %d\n",
                        action.tagLen, static_cast<int>(kept), tag, value);
    }

    const int result =
        kept == 0 ? 0
                  : mFreqManager.DoPerfSetConfig(cmdId, static_cast<int>(kept), tags.data(),
                                                 configs.data(), payload.first);
    if (!runAgain) return result;

    // The action runs again, also when that leads straight back here. Only how often is bounded, so
    // that a scene that never ends costs a request and not the server.
    TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                    "tarquel: DoOnOffAction need check risk of dead loop...\n");
    const Reentry reentry;
    if (!reentry.IsAllowed()) {
        TARQUEL_LOGE("tarquel: DoOnOffAction dead loop, cmdId is %d\n", cmdId);
        return -1;
    }
    return mSelf.DoAction(action, 1, payload.first);
}

}  // namespace tarquel

#include "adapter/qcom_perf_adapter.h"

#include <cstring>
#include <mutex>

#include "actions/inter_freq.h"
#include "base/cpu_info.h"
#include "base/log.h"
#include "base/null_argument.h"
#include "config/timer_fence.h"
#include "tarquel/plat.h"
#include "tarquel/properties.h"

using namespace tarquel;

QcomPerfAdapter::QcomPerfAdapter()
    : mTunables(CpuInfo::GetInstance().Get(), mSwitches), mFreqManager(GetFreqManager(*this)) {
    {
        std::lock_guard lock(PerfLockClient::Mutex());
        PerfLockClient::InitPerfLock();
    }
    mTunables.InitDefaultNodeValue();
    CheckDebugVersion();
    timer_fence::Open(this);
    mTimer.CreateTimer(&TimerCallback, this);
}

QcomPerfAdapter::~QcomPerfAdapter() {
    // From here on the timer finds no adapter; a callback under way ends first.
    timer_fence::Close();
    std::lock_guard lock(PerfLockClient::Mutex());
    PerfLockClient::CleanUp();
    mTimer.DeleteTimer();
}

void QcomPerfAdapter::TimerCallback(sigval value) {
    // The integer view, as the contract of the callback has it, though a pointer is what travels.
    if (value.sival_int == 0) {
        TARQUEL_LOGE("tarquel TimerCallback Failed");
        return;
    }
    timer_fence::Run(value.sival_ptr,
                     [](void* owner) { static_cast<QcomPerfAdapter*>(owner)->mTimer.Expire(); });
}

// A release build ("1" or "6") writes only what SetDebug asks for.
void QcomPerfAdapter::CheckDebugVersion() {
    char usertype[kPropertyValueMax] = {};
    property_get("ro.logsystem.usertype", usertype, "1");
    mSwitches.mVersionDebug = std::strcmp(usertype, "1") != 0 && std::strcmp(usertype, "6") != 0;
}

int QcomPerfAdapter::SetDebug(bool on) {
    mSwitches.mDebug = on;
    return 0;
}

int QcomPerfAdapter::SetState(int state) {
    mControl.mState = state;
    return 0;
}

int QcomPerfAdapter::DoAction(const Action& first, unsigned int payloadNum, const int* payload) {
    if (IsNullArgument(&first, "DoAction")) return -1;
    return mActions.DoAction(first, Payload(payloadNum, payload));
}

int QcomPerfAdapter::DoAddTaskBoostInfo(Action& first, std::string msg) {
    if (IsNullArgument(&first, "DoAddTaskBoostInfo")) return 0;
    if (IsNullArgument(&msg, "DoAddTaskBoostInfo")) return 0;
    return mCompletion.DoAddTaskBoostInfo(first, msg);
}

int QcomPerfAdapter::DoAddScalingInfo(Action& first) {
    if (IsNullArgument(&first, "DoAddScalingInfo")) return 0;
    return mCompletion.DoAddScalingInfo(first);
}

int QcomPerfAdapter::DoPerfSetConfig(int clientId, int tagLen, const int* tags,
                                     const int* configs) {
    return mFreqManager->DoPerfSetConfig(clientId, tagLen, tags, configs, nullptr);
}

void QcomPerfAdapter::DoRealPerfSetConfig(int clientId, int tagLen, const int* tags,
                                          const int* newConfigs) {
    mSetter.DoRealPerfSetConfig(clientId, tagLen, tags, newConfigs);
}

int QcomPerfAdapter::DoPerfGetConfig(int tagLen, const int* tags, int* values) {
    return mQueries.DoPerfGetConfig(tagLen, tags, values);
}

int QcomPerfAdapter::GetPerfEventStatus(std::map<std::string, int>& status) {
    if (IsNullArgument(&status, "GetPerfEventStatus")) return -1;
    return mQueries.GetPerfEventStatus(status);
}

int QcomPerfAdapter::DoSchedLevelAction(int, int, const int*, const int*) {
    return 0;
}

int QcomPerfAdapter::GetPerfTagValue(const Action& action, int release, int* tags, int* freqs) {
    if (tags == nullptr || freqs == nullptr || IsNullArgument(&action, "GetPerfTagValue"))
        return -1;
    return mQueries.GetLimitTagValue(action, release, tags, freqs);
}

int QcomPerfAdapter::DoProbeAffinity(unsigned int, int) {
    return 0;
}

int QcomPerfAdapter::GetChipPlatformType(const Action&, int& type) {
    if (IsNullArgument(&type, "GetChipPlatformType")) return -1;
    type = 0;
    return 0;
}

void QcomPerfAdapter::UpdateBoostCount(int cmdId, long now) {
    mBoostCounter.UpdateBoostCount(cmdId, now);
}

bool QcomPerfAdapter::CanThermalBoost(int cmdId) {
    return mBoostCounter.CanThermalBoost(cmdId);
}

int QcomPerfAdapter::DoInterFreqAction(const QcomAction& action, const int* payload) {
    if (IsNullArgument(&action, "DoInterFreqAction")) return -1;
    return tarquel::DoInterFreqAction(action, payload);
}

void QcomPerfAdapter::SavePerfVal(const QcomAction& action, const int* payload, int& duration,
                                  int* list, int& len) {
    if (IsNullArgument(&action, "SavePerfVal") || IsNullArgument(&duration, "SavePerfVal") ||
        IsNullArgument(&len, "SavePerfVal")) {
        return;
    }
    mActions.SavePerfVal(action, payload, duration, list, len);
}

int QcomPerfAdapter::CheckPerfLockHandle(int handle) {
    return mPerfLock.CheckPerfLockHandle(handle);
}

void QcomPerfAdapter::DoEventCacheHandle(int cmdId, int index, int handle) {
    mHandles.CacheHandle(cmdId, index, handle);
}

QcomFreqManager* QcomPerfAdapter::FreqManager() const {
    return mFreqManager.get();
}

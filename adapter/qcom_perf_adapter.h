// The adapter: the face that the policy server sees. It owns one small object for each room, builds
// and destroys them in the fixed order, and forwards.
//
//   DoAction, SavePerfVal                          actions/action_executor.h
//   DoInterFreqAction                              actions/inter_freq.h
//   DoAddTaskBoostInfo, DoAddScalingInfo           actions/boost_completion.h
//   UpdateBoostCount, CanThermalBoost              actions/boost_counter.h
//   CheckPerfLockHandle                            locks/perf_lock.h
//   DoEventCacheHandle                             locks/handle_cache.h
//   DoPerfSetConfig                                freq/freq_manager.h, which comes back through
//     DoRealPerfSetConfig                          config/config_setter.h
//   DoPerfGetConfig, GetPerfEventStatus, GetPerfTagValue
//                                                  config/queries.h
#pragma once

#include <signal.h>

#include <memory>
#include <string>

#include "actions/action_executor.h"
#include "actions/boost_completion.h"
#include "actions/boost_counter.h"
#include "base/debug_switches.h"
#include "config/breakthrough_timer.h"
#include "config/config_setter.h"
#include "config/control_state.h"
#include "config/control_type.h"
#include "config/freq_rules.h"
#include "config/group_config.h"
#include "config/queries.h"
#include "config/scaling_writeback.h"
#include "freq/freq_manager.h"
#include "freq/limit_sink.h"
#include "locks/handle_cache.h"
#include "locks/perf_lock.h"
#include "locks/perf_service.h"
#include "nodes/tunables.h"
#include "tarquel/perf_adapter.h"

class QcomPerfAdapter : public PerfAdapter, public tarquel::LimitSink {
  public:
    // Takes the cluster layout from CpuInfo and reads the platform's default limits.
    QcomPerfAdapter();
    ~QcomPerfAdapter() override;

    // The server's slots. Their order is the ABI; tarquel/perf_adapter.h says what each promises.
    int SetDebug(bool on) override;
    int SetState(int state) override;
    int DoAction(const Action& first, unsigned int payloadNum, const int* payload) override;
    int DoAddTaskBoostInfo(Action& first, std::string msg) override;
    int DoAddScalingInfo(Action& first) override;
    int DoPerfSetConfig(int clientId, int tagLen, const int* tags, const int* configs) override;
    int DoPerfGetConfig(int tagLen, const int* tags, int* values) override;
    int GetPerfEventStatus(std::map<std::string, int>& status) override;
    int DoSchedLevelAction(int level, int count, const int* tags, const int* values) override;
    int GetPerfTagValue(const Action& action, int release, int* tags, int* freqs) override;
    int DoProbeAffinity(unsigned int mask, int pid) override;
    int GetChipPlatformType(const Action& action, int& type) override;
    void UpdateBoostCount(int cmdId, long now) override;
    bool CanThermalBoost(int cmdId) override;

    // What the server calls directly.
    TARQUEL_API int DoInterFreqAction(const QcomAction& action, const int* payload);
    TARQUEL_API void SavePerfVal(const QcomAction& action, const int* payload, int& duration,
                                 int* list, int& len);
    TARQUEL_API int CheckPerfLockHandle(int handle);
    TARQUEL_API void DoEventCacheHandle(int cmdId, int index, int handle);

    // The manager in force, for the server's dump. The adapter owns it.
    TARQUEL_API QcomFreqManager* FreqManager() const;

    // The switches that a manager shares.
    const tarquel::DebugSwitches& Switches() const { return mSwitches; }

    // Applies what the manager arbitrated.
    void DoRealPerfSetConfig(int clientId, int tagLen, const int* tags,
                             const int* newConfigs) override;

  private:
    static void TimerCallback(sigval value);
    void CheckDebugVersion();

    // Each room takes the ones above it by reference. What guards their state, and in which order
    // locks are taken, is in docs/threads.md.
    tarquel::DebugSwitches mSwitches;
    tarquel::ControlState mControl;
    tarquel::Tunables mTunables;
    tarquel::PerfLockClient mPerfLock{mSwitches};
    tarquel::HandleCache mHandles{mSwitches, mPerfLock};
    tarquel::PerfService mPerfService{mSwitches, mTunables, mPerfLock};
    const std::unique_ptr<QcomFreqManager> mFreqManager;

    tarquel::ScalingWriteback mScaling{mTunables, mControl, *mFreqManager};
    tarquel::BreakthroughTimer mTimer{mSwitches, mControl, mScaling, *mFreqManager};
    tarquel::ControlType mControlType{mSwitches, mControl, mTunables, mScaling, mTimer};
    tarquel::FreqRules mRules{mSwitches, mControl, mTunables, mScaling, mPerfService};
    tarquel::GroupConfig mGroup{mSwitches, mControl, mTunables, mRules, mPerfService, mPerfLock};
    tarquel::ConfigSetter mSetter{mSwitches,    mControl,     mRules, mScaling,
                                  mPerfService, mControlType, mGroup};
    tarquel::Queries mQueries{mSwitches, mControl, mTunables};

    tarquel::ActionExecutor mActions{*this,    mSwitches, mControl,     mPerfLock,
                                     mHandles, mTimer,    *mFreqManager};
    tarquel::BoostCompletion mCompletion{mSwitches, mControl, mTunables};
    tarquel::BoostCounter mBoostCounter;
};

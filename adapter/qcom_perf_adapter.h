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

#include <memory>
#include <mutex>
#include <string>

#include "actions/action_executor.h"
#include "actions/boost_completion.h"
#include "actions/boost_counter.h"
#include "base/adapter_state.h"
#include "base/cluster_layout.h"
#include "base/trace.h"
#include "config/breakthrough_timer.h"
#include "config/config_setter.h"
#include "config/control_type.h"
#include "config/freq_rules.h"
#include "config/group_config.h"
#include "config/queries.h"
#include "config/scaling_writeback.h"
#include "config/timer_fence.h"
#include "freq/freq_manager.h"
#include "locks/handle_cache.h"
#include "locks/perf_lock.h"
#include "locks/perf_service.h"
#include "nodes/freq_records.h"
#include "nodes/node_io.h"
#include "nodes/node_table.h"
#include "nodes/tag_opcodes.h"
#include "tarquel/perf_adapter.h"

class QcomPerfAdapter : public PerfAdapter {
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

    // Never at an address whose low 32 bits are 0: the timer's callback takes such a one for none.
    static void* operator new(size_t size);
    static void operator delete(void* adapter);

    // Applies what the manager arbitrated; called with its mutex held.
    int DoRealPerfSetConfig(int clientId, int tagLen, const int* tags, const int* newConfigs);

  private:
    static void TimerCallback(sigval value);

    void InitCpuNode();
    void CheckDebugVersion();

    static constexpr int busDcvsVariant = 1;

    // Each room takes the ones above it by reference. What guards their state, and in which order
    // locks are taken, is in docs/threads.md.
    std::mutex mDebugMutex;  // makes switching the adapter and its manager one step
    tarquel::DebugSwitches mSwitches;
    tarquel::ControlState mControl;
    const tarquel::ClusterLayout mLayout;
    tarquel::Tracer mTracer{mSwitches};
    tarquel::PerfLockClient mPerfLock{mTracer};
    std::unique_ptr<QcomFreqManager> mFreqManagerPtr;

    tarquel::NodeIo mNodeIo{mSwitches};
    tarquel::NodeTable mNodes{mSwitches, mLayout};
    tarquel::TagOpcodes mTagOpcodes;
    tarquel::FreqRecords mRecords;
    tarquel::ScalingWriteback mScaling{mNodeIo, mNodes, mRecords, mControl, mFreqManagerPtr};

    tarquel::BreakthroughTimer mTimer{mSwitches, mControl, mScaling, mFreqManagerPtr};
    tarquel::TimerFence mTimerFence{this};
    tarquel::HandleCache mHandles{mSwitches, mPerfLock};
    tarquel::ActionExecutor mActions{*this,     mSwitches, mControl, mTracer,
                                     mPerfLock, mHandles,  mTimer,   mFreqManagerPtr};
    tarquel::BoostCompletion mCompletion{mSwitches, mControl, mLayout, mRecords};
    tarquel::BoostCounter mBoostCounter;

    tarquel::PerfService mPerfService{mSwitches, mLayout, mTracer, mTagOpcodes, mPerfLock};
    tarquel::FreqRules mRules{mSwitches, mControl, mLayout,  mRecords,
                              mNodeIo,   mNodes,   mScaling, mPerfService};
    tarquel::ControlType mControlType{mSwitches, mControl, mLayout,  mRecords,
                                      mNodeIo,   mNodes,   mScaling, mTimer};
    tarquel::GroupConfig mGroup{mSwitches,   mControl, mLayout,      mTracer,
                                mTagOpcodes, mRules,   mPerfService, mPerfLock};
    tarquel::ConfigSetter mSetter{mSwitches, mControl,     mLayout,      mRecords, mRules,
                                  mScaling,  mPerfService, mControlType, mGroup};
    tarquel::Queries mQueries{mSwitches, mControl, mRecords, mNodeIo, mNodes};
};

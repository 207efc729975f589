// Decides which value of a tag reaches the device when several requesters set it.
//
//   DoPerfSetConfig          every request: of a client or of a scene command
//   GetLastFreqLimitStrategy brings the thermal ceilings up to date
//   GetThermalConfig         the thermal ceiling in force
//   DumpFreqList             what the clients asked for, as text
//
// Clients 1 to 4 are long-lived; each has a table of what it last asked for. Scene commands (ids of
// 5 and above) ask for a value per tag from their start event to their end event. Among ceilings
// the lowest wins, among floors the highest. 0 means no limit, -1 unset.
#pragma once

#include <array>
#include <atomic>
#include <mutex>
#include <span>

#include "base/debug_switches.h"
#include "freq/limit_sink.h"
#include "freq/limit_table.h"
#include "freq/scene_limits.h"
#include "tarquel/api.h"

namespace android {
class String8;
}

class QcomFreqManager {
  public:
    // Arbitrated values go to `sink`; both outlive the manager.
    QcomFreqManager(tarquel::LimitSink& sink, const tarquel::DebugSwitches& switches)
        : mSink(sink), mSwitches(switches) {}
    virtual ~QcomFreqManager() = default;

    QcomFreqManager(const QcomFreqManager&) = delete;
    QcomFreqManager& operator=(const QcomFreqManager&) = delete;

    // Arbitrates a request and applies the result.
    //   clientId  1 to 4 a client, 0 nobody (nothing happens), any other id a scene command
    //   tagLen    entries of `tags` and `configs`; with none, nothing happens
    //   configs   kHz for CPU, Hz for GPU; 0 lifts the requester's limit
    //   event     of a scene command: 0 starts it, -1 ends it, another value applies once; null for
    //             a client
    //   Returns   0; -1 for a refused request, of which nothing reaches the device
    //   Threads   any; one request at a time
    int DoPerfSetConfig(int clientId, int tagLen, const int* tags, const int* configs,
                        const int* event);

    // Derives the thermal ceilings anew from what the clients last asked for, so that a ceiling
    // that a new thermal request leaves out stays right. Threads: any; of a thermal request whose
    // values are being applied, its own count already.
    void GetLastFreqLimitStrategy();

    // The thermal ceiling of a CPU cluster's ceiling tag in kHz; 0 for none, -1 for none known. 0
    // for any other tag. Threads: any.
    int GetThermalConfig(int tag) const;

    // Appends the last requests of the power, thermal and Eapa clients. Threads: any; takes no
    // lock.
    TARQUEL_API void DumpFreqList(android::String8& out);

  private:
    int DoClientConfig(int clientId, std::span<const int> tags, const int* configs);
    int DoPerfEventConfig(int cmdId, std::span<const int> tags, const int* configs, int event);

    // What the other clients last asked for, in the order of their ids.
    using Others = std::array<int, 3>;
    Others OthersConfigs(int clientId, int tag) const;
    int GetMinTagConfigs(int clientId, int tag) const;
    void PrintTagConfigs(int clientId, int tag, const Others& others) const;
    int GetSceneConfig(int tag);
    int GetMaxFreqFromMap(int cmdId, int event, int tag, int config);
    int GetMinFreqFromMap(int cmdId, int event, int tag, int config);

    void CacheTags(int clientId, std::span<const int> tags, const int* configs,
                   const int* newConfigs);
    void SaveDataToMap(int cmdId, int event, std::span<const int> tags, const int* configs);

    void SetThermalConfig(int tag, int value);

    static void PrintFreqList(const tarquel::LimitTable& table, android::String8& out);

    // `clientId` is one of 1 to 4.
    tarquel::LimitTable& Table(int clientId) {
        return mClientTables[static_cast<size_t>(clientId - 1)];
    }
    const tarquel::LimitTable& Table(int clientId) const {
        return mClientTables[static_cast<size_t>(clientId - 1)];
    }

    tarquel::LimitSink& mSink;
    const tarquel::DebugSwitches& mSwitches;
    std::array<tarquel::LimitTable, 4> mClientTables;  // of client 1, 2, 3, 4
    tarquel::LimitTable mClientMergedMap;              // what the clients' arbitration gave last
    tarquel::SceneTable mSceneFreqMap;
    std::mutex mMutex;         // held by a request from its beginning to its end
    std::mutex mThermalMutex;  // makes storing what the thermal client asks for, and deriving its
                               // ceiling from that, one step each
    std::array<std::atomic<int>, tarquel::kCpuDomains> mThermalConfigMap{
        tarquel::kUnset, tarquel::kUnset, tarquel::kUnset};  // by domain
};

#include "freq/freq_manager.h"

#include <algorithm>

#include "adapter/qcom_perf_adapter.h"
#include "base/bad_caller.h"
#include "base/client_ids.h"
#include "base/command_ids.h"
#include "base/log.h"
#include "freq/limit_merge.h"
#include "tarquel/plat.h"

using namespace tarquel;

namespace {

constexpr auto kThermalTags = std::to_array<int>({kTagLittleMax, kTagMiddleMax, kTagLastMax});

// The place of a CPU ceiling in the thermal map.
constexpr size_t ThermalIndex(int tag) {
    return tag == kTagLittleMax ? 0 : tag == kTagMiddleMax ? 1 : 2;
}

// A request without arrays or with a count that no request has.
bool IsMalformed(int clientId, int tagLen, const int* tags, const int* configs) {
    const int most = IsClient(clientId) ? kMaxTags : kMaxScenePairs;
    return tagLen < 0 || tagLen > most || tags == nullptr || configs == nullptr;
}

// What a client asked for counts in later arbitration; of the camera only an untimed group does.
bool IsCacheable(int clientId, int firstTag, int firstConfig) {
    return clientId != kClientCamera || (firstTag == kTagGroup && firstConfig == 0);
}

bool TouchesThermalLimits(std::span<const int> tags) {
    return std::any_of(tags.begin(), tags.end(),
                       [](int tag) { return IsCpuMaxTag(tag) || tag == kTagControlType; });
}

}  // namespace

extern "C" QcomFreqManager* GetFreqManager(QcomPerfAdapter& adapter) {
    if (IsNullArgument(&adapter, "GetFreqManager")) return nullptr;
    return new QcomFreqManager(adapter);
}

int QcomFreqManager::DoPerfSetConfig(int clientId, int tagLen, const int* tags, const int* configs,
                                     const int* event) {
    std::lock_guard lock(mMutex);
    if (clientId == kClientNobody) return 0;
    if (!IsClient(clientId) && event == nullptr) return -1;
    if (tagLen == 0 && clientId != kClientCamera) return 0;
    if (tagLen == 0 || IsMalformed(clientId, tagLen, tags, configs)) {
        TARQUEL_LOGE("tarquel: DoPerfSetConfig invalid request, clientId is %d, tagLen is %d\n",
                     clientId, tagLen);
        return -1;
    }
    const std::span<const int> tagList(tags, static_cast<size_t>(tagLen));
    if (!IsClient(clientId)) return DoPerfEventConfig(clientId, tagList, configs, *event);
    return DoClientConfig(clientId, tagList, configs);
}

int QcomFreqManager::DoClientConfig(int clientId, std::span<const int> tags, const int* configs) {
    const bool isCacheable = IsCacheable(clientId, tags[0], configs[0]);
    if (clientId == kClientTemp && TouchesThermalLimits(tags)) GetLastFreqLimitStrategy();

    std::array<int, kMaxTags> newConfigs;
    for (size_t i = 0; i < tags.size(); ++i) {
        const int tag = tags[i];
        if (configs[i] < 0 && tag != kTagGroup) {
            TARQUEL_LOGE("tarquel: invalid config value(%d)", configs[i]);
            return -1;
        }
        newConfigs[i] = configs[i];
        if (isCacheable && IsConfigTag(tag)) {
            const int merged = GetNewConfig(clientId, tag, configs[i]);
            mClientMergedMap.Set(tag, merged);
            const int result = GetConfigWithSceneEvent(merged, tag);
            if (result == kUnset) return -1;
            newConfigs[i] = result;
            if (clientId == kClientTemp && IsCpuMaxTag(tag)) {
                mThermalConfigMap[ThermalIndex(tag)] = result;
            }
        }
        if (mDebug) {
            const int at = static_cast<int>(i);
            TARQUEL_LOGI("tarquel: tags[%d] = %d, newConfigs[%d] = %d, Configs[%d] = %d\n", at, tag,
                         at, newConfigs[i], at, configs[i]);
        }
    }
    // Before the values are applied, which never fails: a breakthrough that ends meanwhile puts
    // back what is asked for now.
    if (isCacheable) CacheTags(clientId, tags, configs, newConfigs.data());
    mAdapter.DoRealPerfSetConfig(clientId, static_cast<int>(tags.size()), tags.data(),
                                 newConfigs.data());
    return 0;
}

int QcomFreqManager::GetMinTagConfigs(int clientId, int tag) const {
    std::array<int, 3> others{};
    size_t count = 0;
    for (int id = kClientPower; id <= kClientCamera; ++id) {
        if (id != clientId) others[count++] = Table(id).Get(tag);
    }
    const int smallest = GetValidMinValue(others[0], others[1], others[2]);
    if (mDebug) {
        TARQUEL_LOGI("tarquel: GetValidMinValue config1 = %d, config2 = %d, config3 = %d",
                     others[0], others[1], others[2]);
    }
    if (IsVerbose()) {
        TARQUEL_LOGI(
            "tarquel: TagConfigs clientId = %d, Tag = %d, min = %d, Temp = %d, Power = %d, "
            "Eapa = %d, Camera = %d\n",
            clientId, tag, smallest, Table(kClientTemp).Get(tag), Table(kClientPower).Get(tag),
            Table(kClientEapa).Get(tag), Table(kClientCamera).Get(tag));
    }
    return smallest;
}

int QcomFreqManager::GetNewConfig(int clientId, int tag, int value) const {
    return LimitMerge(GetMinTagConfigs(clientId, tag), value);
}

int QcomFreqManager::GetSceneConfig(int tag) {
    return IsMaxTag(tag) ? mSceneFreqMap.At(tag).Smallest() : 0;
}

int QcomFreqManager::GetConfigWithSceneEvent(int value, int tag) {
    return LimitMerge(GetSceneConfig(tag), value);
}

void QcomFreqManager::GetLastFreqLimitStrategy() {
    for (const int tag : kThermalTags) {
        const int others = GetMinTagConfigs(kClientTemp, tag);
        std::lock_guard lock(mThermalMutex);
        mThermalConfigMap[ThermalIndex(tag)] = LimitMerge(others, Table(kClientTemp).Get(tag));
    }
}

int QcomFreqManager::GetThermalConfig(int tag) const {
    return IsCpuMaxTag(tag) ? mThermalConfigMap[ThermalIndex(tag)].load() : 0;
}

// What the client asked for, not what it got: its own table never arbitrates its own request.
void QcomFreqManager::CacheTags(int clientId, std::span<const int> tags, const int* configs,
                                const int* newConfigs) {
    LimitTable& table = Table(clientId);
    std::lock_guard lock(mThermalMutex);
    for (size_t i = 0; i < tags.size(); ++i) {
        table.Set(tags[i], configs[i]);
        // Again: a breakthrough that ended since may have derived it from the former request.
        if (clientId == kClientTemp && IsCpuMaxTag(tags[i])) {
            mThermalConfigMap[ThermalIndex(tags[i])] = newConfigs[i];
        }
    }
}

int QcomFreqManager::DoPerfEventConfig(int cmdId, std::span<const int> tags, const int* configs,
                                       int event) {
    std::array<int, kMaxScenePairs> arbitrated{};
    for (size_t i = 0; i < tags.size(); ++i) {
        const int tag = tags[i];
        if (!IsSceneTag(tag)) {
            TARQUEL_LOGE("tarquel: invalid tag %d, cmdId is %d", tag, cmdId);
            return -1;
        }
        arbitrated[i] = IsMinTag(tag) ? GetMaxFreqFromMap(cmdId, event, tag, configs[i])
                                      : GetMinFreqFromMap(cmdId, event, tag, configs[i]);
    }
    if (event == kEventOn || event == kEventOff) SaveDataToMap(cmdId, event, tags, configs);
    const int result = mAdapter.DoRealPerfSetConfig(cmdId, static_cast<int>(tags.size()),
                                                    tags.data(), arbitrated.data());
    if (result != 0) TARQUEL_LOGE("tarquel: DoPerfEventConfig failed!");
    return result;
}

// The floor in force with this request: the highest one wins.
int QcomFreqManager::GetMaxFreqFromMap(int cmdId, int event, int tag, int config) {
    const int others = mSceneFreqMap.At(tag).LargestOfOthers(cmdId);
    return event == kEventOn ? std::max(others, config) : others;
}

// The ceiling in force with this request: the lowest of the clients' and the scenes' wins.
int QcomFreqManager::GetMinFreqFromMap(int cmdId, int event, int tag, int config) {
    int limit = mSceneFreqMap.At(tag).SmallestOfOthers(cmdId);
    const int client = mClientMergedMap.Get(tag);
    if (client >= 1 && client < limit) limit = client;
    if (event == kEventOn) return std::min(limit, config);
    return limit == kNoSceneLimit ? 0 : limit;
}

// Records what the command asks for; of a tag that is named twice the last value counts. A value
// below 1 asks for nothing and withdraws nothing.
void QcomFreqManager::SaveDataToMap(int cmdId, int event, std::span<const int> tags,
                                    const int* configs) {
    std::array<int, kSceneTags> requested{};
    for (size_t i = 0; i < tags.size(); ++i) requested[static_cast<size_t>(tags[i])] = configs[i];
    for (size_t tag = 0; tag < requested.size(); ++tag) {
        if (requested[tag] < 1) continue;
        mSceneFreqMap.At(static_cast<int>(tag)).Set(cmdId, event == kEventOn ? requested[tag] : 0);
    }
}

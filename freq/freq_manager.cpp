#include "freq/freq_manager.h"

#include <algorithm>

#include "base/ids.h"
#include "base/log.h"
#include "freq/limit_merge.h"

using namespace tarquel;

namespace {

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
                       [](int tag) { return IsCpuCeilingTag(tag) || tag == kTagControlType; });
}

}  // namespace

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
            const int merged = LimitMerge(GetMinTagConfigs(clientId, tag), configs[i]);
            mClientMergedMap.Set(tag, merged);
            newConfigs[i] = LimitMerge(GetSceneConfig(tag), merged);
            if (clientId == kClientTemp) SetThermalConfig(tag, newConfigs[i]);
        }
        const int at = static_cast<int>(i);
        TARQUEL_LOGI_IF(mSwitches.IsDebug(),
                        "tarquel: tags[%d] = %d, newConfigs[%d] = %d, Configs[%d] = %d\n", at, tag,
                        at, newConfigs[i], at, configs[i]);
    }
    // Before the values are applied, which never fails: a breakthrough that ends meanwhile puts
    // back what is asked for now.
    if (isCacheable) CacheTags(clientId, tags, configs, newConfigs.data());
    mSink.DoRealPerfSetConfig(clientId, static_cast<int>(tags.size()), tags.data(),
                              newConfigs.data());
    return 0;
}

QcomFreqManager::Others QcomFreqManager::OthersConfigs(int clientId, int tag) const {
    Others others{};
    size_t count = 0;
    for (int id = kClientPower; id <= kClientCamera; ++id) {
        if (id != clientId) others[count++] = Table(id).Get(tag);
    }
    return others;
}

int QcomFreqManager::GetMinTagConfigs(int clientId, int tag) const {
    const Others others = OthersConfigs(clientId, tag);
    PrintTagConfigs(clientId, tag, others);
    return GetValidMinValue(others[0], others[1], others[2]);
}

void QcomFreqManager::PrintTagConfigs(int clientId, int tag, const Others& others) const {
    TARQUEL_LOGI_IF(mSwitches.IsDebug(),
                    "tarquel: GetValidMinValue config1 = %d, config2 = %d, config3 = %d", others[0],
                    others[1], others[2]);
    TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                    "tarquel: TagConfigs clientId = %d, Tag = %d, min = %d, Temp = %d, Power = %d, "
                    "Eapa = %d, Camera = %d\n",
                    clientId, tag, GetValidMinValue(others[0], others[1], others[2]),
                    Table(kClientTemp).Get(tag), Table(kClientPower).Get(tag),
                    Table(kClientEapa).Get(tag), Table(kClientCamera).Get(tag));
}

int QcomFreqManager::GetSceneConfig(int tag) {
    return IsCeilingTag(tag) ? mSceneFreqMap.At(tag).Smallest() : 0;
}

void QcomFreqManager::GetLastFreqLimitStrategy() {
    for (size_t domain = 0; domain < kCpuDomains; ++domain) {
        const int tag = kLimitTags[domain].ceiling;
        Others others;
        {
            std::lock_guard lock(mThermalMutex);
            others = OthersConfigs(kClientTemp, tag);
            SetThermalConfig(tag, LimitMerge(GetValidMinValue(others[0], others[1], others[2]),
                                             Table(kClientTemp).Get(tag)));
        }
        PrintTagConfigs(kClientTemp, tag, others);
    }
}

int QcomFreqManager::GetThermalConfig(int tag) const {
    return IsCpuCeilingTag(tag) ? mThermalConfigMap[FindLimitTags(tag)->domain].load() : 0;
}

// Ignores a tag that is no CPU cluster's ceiling.
void QcomFreqManager::SetThermalConfig(int tag, int value) {
    if (IsCpuCeilingTag(tag)) mThermalConfigMap[FindLimitTags(tag)->domain] = value;
}

// What the client asked for, not what it got: its own table never arbitrates its own request.
void QcomFreqManager::CacheTags(int clientId, std::span<const int> tags, const int* configs,
                                const int* newConfigs) {
    std::unique_lock lock(mThermalMutex, std::defer_lock);
    if (clientId == kClientTemp) lock.lock();
    for (size_t i = 0; i < tags.size(); ++i) {
        Table(clientId).Set(tags[i], configs[i]);
        // Again: a breakthrough that ended since may have derived it from the former request.
        if (clientId == kClientTemp) SetThermalConfig(tags[i], newConfigs[i]);
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
        arbitrated[i] = IsFloorTag(tag) ? GetMaxFreqFromMap(cmdId, event, tag, configs[i])
                                        : GetMinFreqFromMap(cmdId, event, tag, configs[i]);
    }
    if (event == kEventOn || event == kEventOff) SaveDataToMap(cmdId, event, tags, configs);
    mSink.DoRealPerfSetConfig(cmdId, static_cast<int>(tags.size()), tags.data(), arbitrated.data());
    return 0;
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

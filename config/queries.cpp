#include "config/queries.h"

#include "base/action_list.h"
#include "base/log.h"
#include "base/tags.h"

namespace tarquel {

namespace {

constexpr int kLastLimitEntry = 132;

constexpr bool IsReadable(int tag) {
    return (tag >= 0 && tag <= 11) || (tag >= 43 && tag <= 48) || (tag >= 69 && tag <= 72) ||
           (tag >= 81 && tag <= 97) || (tag >= 99 && tag <= 104) || (tag >= 108 && tag <= 124);
}

}  // namespace

int Queries::DoPerfGetConfig(int tagLen, const int* tags, int* values) {
    if (tagLen < 1) return 0;
    if (tagLen > kMaxTags || tags == nullptr || values == nullptr) {
        TARQUEL_LOGE("tarquel: DoPerfGetConfig invalid request, tagLen is %d\n", tagLen);
        return 0;
    }
    for (int i = 0; i < tagLen; ++i) {
        const int tag = tags[i];
        if (IsReadable(tag)) {
            mTunables.io.ReadNode(mTunables.nodes.Get(tag), &values[i]);
        } else if (tag == kTagGpuMinClock) {
            values[i] = mTunables.records.gpu.defaultMinFreq;
        } else if (tag == kTagGpuMaxClock) {
            values[i] = mTunables.records.gpu.cpuinfoMaxFreq;
        } else {
            TARQUEL_LOGE("tarquel: DoPerfGetConfig invalid tag value: %d !\n", tag);
        }
    }
    return 0;
}

int Queries::GetPerfEventStatus(std::map<std::string, int>& status) const {
    std::lock_guard lock(mControl.mMutex);
    status["mPB_Prior"] = mControl.mPerf;
    status["mTB_Prior"] = mControl.mThermal;
    return 0;
}

int Queries::GetLimitTagValue(const Action& action, int release, int* tags, int* freqs) const {
    if (IsCutShort(action)) return -1;
    const auto pairs = PerfPairs(action);
    int count = 0;
    for (size_t i = 0; i < pairs.size() && count <= kLastLimitEntry; i += 2) {
        if (!IsCeilingTag(pairs[i])) continue;
        // Written before the value is tested: a pair that yields no entry leaves its tag behind.
        tags[count] = pairs[i];
        if (release == 0 && pairs[i + 1] < 1) continue;
        freqs[count] = release != 0 ? 0 : pairs[i + 1];
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                        "tarQuel: GetLimitTagValue cmdId=%d, tag=%d, freq=%d\n", action.cmdId,
                        tags[count], freqs[count]);
        ++count;
    }
    return count;
}

}  // namespace tarquel

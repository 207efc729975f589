#include "actions/boost_completion.h"

#include <algorithm>
#include <string_view>

#include "base/action_list.h"
#include "base/log.h"
#include "base/trace.h"
#include "loader/boost_info.h"
#include "tarquel/securec.h"

namespace tarquel {

namespace {

constexpr int32_t kOpcodeTaskBoost = 0x40C80000;

constexpr int32_t kOpcodeBigMax = 0x40804000;
constexpr int32_t kOpcodeLittleMax = 0x40804100;
constexpr int32_t kOpcodePrimeMax = 0x40804200;

// Ceilings in kHz; the HAL takes them undivided.
constexpr int32_t kOpcodeLittleScalingMax = 0x40810000;
constexpr int32_t kOpcodeBigScalingMax = 0x40814000;
constexpr int32_t kOpcodePrimeScalingMax = 0x40818000;

constexpr int kKhzPerMhz = 1000;

// The thermal levels that an action can be allowed to boost under.
constexpr bool IsThermalLevel(int level) {
    return level >= 1 && level <= 4;
}

// True when `action` names a boost-frequency level for a thermal level.
bool HasBoostLevel(const Action& action, int thermal) {
    return static_cast<size_t>(thermal) <= action.boostLevels.size();
}

// The first piece of `msg`, split at '|', that contains "targetPid"; empty when there is none or it
// is 512 characters or longer.
std::string ParseProcessMsg(const std::string& msg) {
    std::string_view rest(msg.c_str());
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('|'), rest.size());
        const std::string piece(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (piece.find("targetPid") == std::string::npos) continue;
        TextBuffer text{};
        if (!TARQUEL_FORMAT(text, "%s", piece.c_str())) {
            TARQUEL_LOGE("tarquel: get targetPid: snprintf_s error\n");
            return "";
        }
        return text.data();
    }
    return "";
}

}  // namespace

int BoostCompletion::DoAddTaskBoostInfo(Action& first, const std::string& msg) const {
    if (IsEndlessChain(first)) return 0;
    for (Action* action = &first; action != nullptr; action = action->next) {
        if (action->taskBoost == 0 || IsCutShort(*action)) continue;
        int taskId = 0;
        if (sscanf_s(ParseProcessMsg(msg).c_str(), "targetPid=%d", &taskId) != 1) {
            TARQUEL_LOGE("tarquel: TarquelEvent get taskId failed\n");
        }
        if (taskId < 1) return 0;
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                        "tarquel: DoAddTaskBoostInfo cmdId = %d taskId = %d\n", action->cmdId,
                        taskId);
        // Opcodes and values alike are searched, the first int even of an action without pairs.
        std::vector<int32_t>& list = action->perfList;
        const size_t ints = std::min(std::max<size_t>(PairInts(*action), 1), list.size());
        const auto end = list.begin() + static_cast<std::ptrdiff_t>(ints);
        const auto found = std::find(list.begin(), end, kOpcodeTaskBoost);
        if (found != end && found + 1 != list.end()) *(found + 1) = taskId;
    }
    return 0;
}

int BoostCompletion::DoAddScalingInfo(Action& first) const {
    const int thermal = mControl.mThermal;
    const bool mayBreakThrough = first.breakThrough != 0;
    if (!mayBreakThrough || thermal < 1 || IsEndlessChain(first)) return 0;

    bool rewritten = false;
    for (Action* action = &first; action != nullptr; action = action->next) {
        if (!IsThermalLevel(action->boostLimitLevel) || action->boostLimitLevel < thermal) continue;
        if (!HasBoostLevel(*action, thermal) || IsCutShort(*action)) continue;
        const int level = action->boostLevels[static_cast<size_t>(thermal) - 1];
        if (!rewritten) DoAddBoostFreqInfo(first, level);
        rewritten = true;
        AppendCeilings(*action, level);
    }
    return 0;
}

void BoostCompletion::AppendCeilings(Action& action, int level) const {
    BoostFrequencies khz{mTunables.records.little.cpuinfoMaxFreq,
                         mTunables.records.big.cpuinfoMaxFreq,
                         mTunables.records.prime.cpuinfoMaxFreq};
    khz = FreqBoostInfo::GetInstance().GetBoostInfo(level).value_or(khz);

    std::vector<int32_t>& list = action.perfList;
    list.insert(list.end(), {kOpcodeLittleScalingMax, khz.little, kOpcodeBigScalingMax, khz.big});
    if (mTunables.clusters.HasPrime()) list.insert(list.end(), {kOpcodePrimeScalingMax, khz.prime});
    action.tagLen = static_cast<int32_t>(
        std::min<int64_t>(int64_t{action.tagLen} + mTunables.clusters.Count(), INT32_MAX));
}

void BoostCompletion::DoAddBoostFreqInfo(Action& first, int level) const {
    const auto khz = FreqBoostInfo::GetInstance().GetBoostInfo(level);
    if (!khz) return;
    for (Action* action = &first; action != nullptr; action = action->next) {
        const std::span<int32_t> pairs = PerfPairs(*action);
        for (size_t i = 0; i < pairs.size(); i += 2) {
            if (pairs[i] == kOpcodeBigMax) {
                pairs[i + 1] = khz->big / kKhzPerMhz;
            } else if (pairs[i] == kOpcodeLittleMax) {
                pairs[i + 1] = khz->little / kKhzPerMhz;
            } else if (pairs[i] == kOpcodePrimeMax && mTunables.clusters.HasPrime()) {
                pairs[i + 1] = khz->prime / kKhzPerMhz;
            }
        }
    }
}

}  // namespace tarquel

#include "fuzz/limit_rule.h"

#include <algorithm>
#include <utility>

#include "base/ids.h"

namespace lab {
namespace {

constexpr int kGpuFloorTag = 9;
constexpr int kGpuCeilingTag = 10;
constexpr std::array<int, 3> kCpuCeilingTags = {1, 4, 7};

bool IsLimit(int tag) {
    return IsFloorLimit(tag) || IsCeilingLimit(tag);
}

}  // namespace

LimitRule::LimitRule(const DeviceProfile& device, Layout layout, LimitWeighing weigh)
    : mLayout(layout), mWeigh(weigh), mPhone(device) {
    const auto add = [this](int floorTag, int64_t low, int64_t high) {
        const auto floor = static_cast<int>(low);
        const auto ceiling = static_cast<int>(high);
        mRanges.push_back({floorTag, floor, ceiling, floor, ceiling});
    };
    const std::vector<CpuCluster>& clusters = device.clusters;
    add(0, clusters[0].khz.front(), clusters[0].khz.back());
    if (layout == Layout::kThreeClusters) add(3, clusters[1].khz.front(), clusters[1].khz.back());
    add(6, clusters.back().khz.front(), clusters.back().khz.back());
    add(kGpuFloorTag, device.gpuMhz.back() * kHzPerMhz, device.gpuMhz.front() * kHzPerMhz);
}

LimitRule::Range* LimitRule::FindRange(int tag) {
    const int floorTag = IsFloorLimit(tag) ? tag : tag - 1;
    const auto found = std::find_if(mRanges.begin(), mRanges.end(),
                                    [=](const Range& range) { return range.floorTag == floorTag; });
    return found == mRanges.end() ? nullptr : &*found;
}

// What is asked, and what comes of it when it is weighed.

LimitWord LimitRule::NewWord(int tag, int requester, int value, bool isUntimedGroup) {
    return {requester, value, ++mLastOrder,
            IsRememberedWord(tag, requester, value, isUntimedGroup)};
}

int LimitRule::Limit(int clientId, const std::vector<Asked>& asked) {
    if (clientId == 0) return 0;
    if (!tarquel::IsClient(clientId)) return -1;
    const bool isThermalsAffair =
        clientId == tarquel::kClientTemp &&
        std::any_of(asked.begin(), asked.end(), [](const Asked& one) {
            return IsCpuCeilingLimit(one.tag) || one.tag == kControlTypeTag;
        });
    if (isThermalsAffair) DeriveThermal();
    std::vector<Asked> values;
    if (!WeighClient(clientId, asked, values)) return -1;

    const bool isGroup = asked.front().tag == kGroupTag;
    for (size_t i = isGroup ? 1 : 0; i < asked.size(); ++i) {
        const auto [tag, value] = asked[i];
        if (!IsLimit(tag) && !IsWeighedTag(tag)) continue;
        const LimitWord word = NewWord(tag, clientId, value, isGroup && asked.front().value == 0);
        // A group's other tags are its lock's, not the tag's own.
        const bool isOwn = !isGroup || (asked.front().value == 0 && IsCpuCeilingLimit(tag));
        if (isOwn) {
            AddLimitWord(Of(tag).words, word);
        } else if (word.isRemembered) {
            AddUnheardWord(Of(tag).words, word);
        }
    }
    ApplyAll(clientId, values);
    return 0;
}

// What each tag gets. False for a request that is refused; what was weighed until then has its
// effect on scenes and on the write-back.
bool LimitRule::WeighClient(int clientId, const std::vector<Asked>& asked,
                            std::vector<Asked>& values) {
    const bool isUntimedGroup = asked.front().tag == kGroupTag && asked.front().value == 0;
    std::vector<int> weighed;
    for (const auto [tag, value] : asked) {
        if (value < 0 && tag != kGroupTag) return false;
        const LimitWord word = NewWord(tag, clientId, value, isUntimedGroup);
        values.push_back({tag, value});
        if (!word.isRemembered) continue;
        std::vector<LimitWord> words = Of(tag).words;
        AddLimitWord(words, word);
        values.back().value = mWeigh(tag, words);
        Of(tag).refused = word;
        weighed.push_back(tag);
        if (clientId == tarquel::kClientTemp && IsCpuCeilingLimit(tag)) {
            Of(tag).thermal = values.back().value;
        }
    }
    for (const int tag : weighed) Of(tag).refused.reset();
    return true;
}

int LimitRule::Scene(int cmdId, const std::vector<Asked>& asked, Moment moment) {
    if (!mIsBoosting) return 0;
    if (moment == Moment::kOnce) return -1;
    for (const auto [tag, value] : asked) {
        if (value < 0 || !IsLimit(tag)) return -1;
    }
    const bool isEnd = moment == Moment::kEnds;
    std::vector<Asked> values;
    std::vector<std::pair<int, LimitWord>> words;
    for (const auto [tag, value] : asked) {
        LimitWord word = NewWord(tag, cmdId, value, false);
        if (isEnd) {
            word.value = 0;
            word.isRemembered = true;
        }
        values.push_back({tag, WeighScene(tag, word)});
        // Of a tag that is named twice the last value is kept; 0 neither asks nor takes back.
        std::erase_if(words, [tag = tag](const auto& former) { return former.first == tag; });
        if (value > 0) {
            words.emplace_back(tag, word);
        } else {
            std::erase_if(Of(tag).words,
                          [](const LimitWord& other) { return !other.isRemembered; });
            if (!word.isRemembered) AddLimitWord(Of(tag).words, word);
        }
    }
    for (const auto& [tag, word] : words) AddLimitWord(Of(tag).words, word);
    ApplyAll(cmdId, values);
    return 0;
}

// Scenes weigh their words against what the clients' came to when one of them last spoke.
int LimitRule::WeighScene(int tag, const LimitWord& word) const {
    std::vector<LimitWord> words = Of(tag).words;
    if (Of(tag).refused) AddLimitWord(words, *Of(tag).refused);
    AddLimitWord(words, word);
    return mWeigh(tag, words);
}

std::optional<int> LimitRule::Remembered(int clientId, int tag) const {
    for (const LimitWord& word : Of(tag).words) {
        if (word.isRemembered && word.requester == clientId) return word.value;
    }
    return std::nullopt;
}

// The thermal ceilings as they follow from what is remembered, long scenes left out: for a request
// that names only some of them, and for the end of a breakthrough.
void LimitRule::DeriveThermal() {
    for (const int tag : kCpuCeilingTags) {
        TagState& state = Of(tag);
        state.thermal.reset();
        if (!Remembered(tarquel::kClientTemp, tag)) continue;
        std::vector<LimitWord> words;
        for (const LimitWord& word : state.words) {
            if (word.isRemembered && tarquel::IsClient(word.requester)) words.push_back(word);
        }
        state.thermal = mWeigh(tag, words);
    }
}

// What is done about it.

void LimitRule::ApplyAll(int requester, const std::vector<Asked>& values) {
    if (values.front().tag == kGroupTag) return ApplyGroup(values);
    bool touchesCeilings = false;
    for (const Asked& asked : values) {
        touchesCeilings = touchesCeilings || IsCpuCeilingLimit(asked.tag) ||
                          (asked.tag == kControlTypeTag && asked.value != 0);
        if (asked.tag == kControlTypeTag) {
            SetControlType(asked.value);
        } else if (IsLimit(asked.tag) && FindRange(asked.tag)) {
            Apply(asked);
        }
    }
    if (WritesNodes() && requester == tarquel::kClientTemp && touchesCeilings) WriteBack();
}

void LimitRule::Apply(const Asked& asked) {
    const std::optional<int> value = ToRange(asked);
    if (value == 0) return;
    if (value && WritesNodes()) {
        Write(asked.tag, *value);
        Of(asked.tag).isSparedOnce = true;
    }
    SetLock(asked.tag, value);
}

// The value that the range allows; nothing for a ceiling that needs no lock.
std::optional<int> LimitRule::ToRange(const Asked& asked) {
    Range& range = *FindRange(asked.tag);
    if (IsFloorLimit(asked.tag)) return ToFloor(range, asked.value);
    return ToCeiling(range, asked.value);
}

// A floor gives way to the ceiling.
int LimitRule::ToFloor(Range& range, int value) {
    range.floor = value == 0 ? range.defaultFloor : std::min(value, range.ceiling);
    return range.floor;
}

// A ceiling takes the floor down with it. At its default a CPU's needs no lock: the node is written
// whoever owns the limits, and the lock goes.
std::optional<int> LimitRule::ToCeiling(Range& range, int value) {
    const int floorTag = range.floorTag;
    const int ceilingTag = floorTag + 1;
    if (value == 0) {
        value = range.defaultCeiling;
    } else if (range.floor > value) {
        if (mPerformance == 0) Write(floorTag, value);
        range.floor = value;
        SetLock(floorTag, value);
    }
    range.ceiling = value;
    if (value != range.defaultCeiling) return value;
    Write(ceilingTag, value);
    Of(ceilingTag).isSparedOnce = true;
    if (ceilingTag == kGpuCeilingTag) return value;
    return std::nullopt;
}

// A group's tags are held by one lock, but the CPUs' ceilings of one without a time limit.
void LimitRule::ApplyGroup(const std::vector<Asked>& values) {
    const int durationMs = values.front().value;
    DropLock(durationMs >= 1 ? mTimedGroup : mUntimedGroup);
    if (durationMs < 0) return;
    std::vector<Asked> held;
    for (size_t i = 1; i < values.size(); ++i) {
        const Asked& asked = values[i];
        if (durationMs == 0 && IsCpuCeilingLimit(asked.tag)) {
            if (FindRange(asked.tag)) ApplyGroupCeiling(asked);
            continue;
        }
        std::erase_if(held, [&](const Asked& former) { return former.tag == asked.tag; });
        held.push_back(asked);
    }
    if (held.empty()) return;
    std::sort(held.begin(), held.end(),
              [](const Asked& a, const Asked& b) { return a.tag < b.tag; });
    std::vector<int> list;
    for (const Asked& asked : held) {
        list.push_back(FindTagOpcode(asked.tag, mLayout).value_or(0));
        list.push_back(HalValue(asked.tag, asked.value));
    }
    (durationMs >= 1 ? mTimedGroup : mUntimedGroup) = Take(std::move(list), durationMs);
}

void LimitRule::ApplyGroupCeiling(const Asked& asked) {
    const std::optional<int> value = ToRange(asked);
    if (value == 0) return;
    if (value && WritesNodes()) Write(asked.tag, *value);
    SetLock(asked.tag, value);
}

void LimitRule::SetControlType(int type) {
    switch (type) {
        case 0:
            mPerformance = 1;
            mThermalLevel = 0;
            mIsBoosting = true;
            for (const Range& range : mRanges) {
                if (range.floorTag != kGpuFloorTag) Write(range.floorTag + 1, range.defaultCeiling);
            }
            break;
        case 4:
        case 10:
            mIsBoosting = false;
            [[fallthrough]];
        case 2:
        case 9:
            mPerformance = 0;
            mThermalLevel = -1;
            // Nothing is put back: the limits are being set anew.
            mBreakthrough.reset();
            break;
        case 5:
            mPerformance = 1;
            mThermalLevel = 1;
            break;
        case 6:
        case 7:
        case 8:
            mPerformance = 0;
            mThermalLevel = type - 4;
            break;
        default:
            break;
    }
}

// Writes the thermal ceilings to the nodes, but those that a request has just written. The default
// of the last cluster is that of a third one: with two clusters it is 0, and meant to be.
void LimitRule::WriteBack() {
    for (const int tag : kCpuCeilingTags) {
        TagState& state = Of(tag);
        const bool isSpared = std::exchange(state.isSparedOnce, false);
        if (isSpared || !state.thermal || !FindRange(tag)) continue;
        const bool hasDefault = tag != kCpuCeilingTags.back() || mLayout == Layout::kThreeClusters;
        const int atDefault = hasDefault ? FindRange(tag)->defaultCeiling : 0;
        Write(tag, *state.thermal == 0 ? atDefault : *state.thermal);
    }
}

void LimitRule::Write(int tag, int value) {
    mPhone.Write(tag, value);
    Of(tag).written = value;
}

// The tag's former lock goes first. Nothing: it gets none.
void LimitRule::SetLock(int tag, std::optional<int> value) {
    DropLock(Of(tag).lock);
    const std::optional<int> opcode = FindTagOpcode(tag, mLayout);
    if (value && opcode) Of(tag).lock = mPhone.Take({*opcode, HalValue(tag, *value)}, std::nullopt);
}

std::optional<int> LimitRule::LockOf(int tag) const {
    const LimitPhone::Lock* lock = Of(tag).lock ? mPhone.Find(*Of(tag).lock) : nullptr;
    return lock ? std::optional(lock->list[1]) : std::nullopt;
}

}  // namespace lab

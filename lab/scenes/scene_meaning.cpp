#include "lab/scenes/scene_meaning.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "base/ids.h"
#include "lab/names/text.h"
#include "loader/element_keys.h"
#include "loader/name_index.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;
using Kind = KeyMeaning::Kind;
using Remark = LoaderRemark::Kind;

constexpr tarquel::NameIndex<tarquel::kOpcodeNames.size()> kOpcodes(tarquel::kOpcodeNames);

// The number of a key that describes the element; of a repeated one the last counts.
std::optional<int> FindNumber(const SceneElement& element, std::string_view key) {
    std::optional<int> number;
    for (const SceneKey& each : element.keys) {
        if (each.name == key) number = std::atoi(each.value.c_str());
    }
    return number;
}

// True for what the loader takes as a number: digits, perhaps behind a minus sign.
bool IsLoaderNumber(const std::string& value) {
    const size_t first = !value.empty() && value[0] == '-' ? 1 : 0;
    return !value.empty() && value.find_first_not_of("0123456789", first) == std::string::npos;
}

std::optional<int> NumberOf(const std::string& value) {
    if (!IsLoaderNumber(value)) return std::nullopt;
    const std::optional<int64_t> number = ParseNumber(value);
    if (!number || *number < INT32_MIN || *number > INT32_MAX) return std::nullopt;
    return static_cast<int>(*number);
}

// Reads one command as the loader does, and goes on behind what refuses it.
class CommandReader {
  public:
    CommandReader(const SceneCommand& command, std::optional<Layout> layout)
        : mCommand(command), mLayout(layout) {}

    CommandMeaning Read() {
        mMeaning.command = &mCommand;
        mMeaning.namesTags = mLayout.has_value();
        mMeaning.kind = KindOf();
        for (const SceneElement& element : mCommand.elements) {
            ElementMeaning& made = mMeaning.elements.emplace_back();
            made.command = &mCommand;
            made.element = &element;
            if (mMeaning.kind == CommandMeaning::Kind::kInteractive) {
                ReadInteractive(made);
            } else if (mMeaning.kind == CommandMeaning::Kind::kDescription) {
                ReadDescription(made);
            } else {
                ReadKeys(made);
                CheckPairs(made);
            }
        }
        const bool isChain = mMeaning.kind == CommandMeaning::Kind::kAction ||
                             mMeaning.kind == CommandMeaning::Kind::kLongScene;
        if (isChain && mMeaning.elements.size() > 1) CheckEnds();
        return std::move(mMeaning);
    }

  private:
    CommandMeaning::Kind KindOf() const {
        if (mCommand.interactive) return CommandMeaning::Kind::kInteractive;
        if (IsDescription(mCommand)) return CommandMeaning::Kind::kDescription;
        return IsLongScene(mCommand) ? CommandMeaning::Kind::kLongScene
                                     : CommandMeaning::Kind::kAction;
    }

    void Say(Remark kind, bool refuses, const SceneKey* key, std::string words) {
        mMeaning.remarks.push_back(
            {kind, refuses, mMeaning.elements.size() - 1, key, std::move(words)});
    }

    KeyMeaning& AddKey(ElementMeaning& made, const SceneKey& key, Kind kind, int code = 0) const {
        const auto isSame = [&](const KeyMeaning& known) {
            if (kind == Kind::kOpcode || kind == Kind::kTag) {
                return known.IsTunable() && known.code == code;
            }
            return kind == known.kind && kind != Kind::kUnknown && known.key->name == key.name;
        };
        const auto first = std::find_if(made.keys.begin(), made.keys.end(), isSame);
        const auto firstIndex = static_cast<size_t>(first - made.keys.begin());
        return made.keys.emplace_back(KeyMeaning{&key, kind, code, std::atoi(key.value.c_str()),
                                                 NumberOf(key.value), firstIndex});
    }

    void ReadKeys(ElementMeaning& made) {
        const bool isInRange = tarquel::IsLongTermScene(mCommand.id);
        bool namesTags = false;
        for (const SceneKey& key : made.element->keys) {
            const std::optional<int> code =
                !namesTags ? FindKeyOpcode(key.name)
                           : (mLayout ? FindSceneTag(key.name, *mLayout) : std::nullopt);
            const bool isHead = !code && keys::IsHeadKey(key.name);
            const Kind kind = code     ? (namesTags ? Kind::kTag : Kind::kOpcode)
                              : isHead ? Kind::kHead
                                       : Kind::kUnknown;
            const KeyMeaning& known = AddKey(made, key, kind, code.value_or(0));
            const bool isRepeated = code && known.first + 1 != made.keys.size();
            if (isRepeated) {
                Say(Remark::kRepeated, false, &key,
                    fmt::format("tarquel: multi-duration exist! we choose the first value({}, {})",
                                made.keys[known.first].value, known.value));
            } else if (kind == Kind::kUnknown) {
                Say(Remark::kUnknownKey, true, &key,
                    fmt::format("tarquel: xml is invalid, cmdId is {} element is {}", mCommand.id,
                                key.name));
            } else if (!known.IsRead()) {
                Say(Remark::kNumber, true, &key,
                    fmt::format("tarquel: xml element is invalid, cmdId is {} element is {}",
                                mCommand.id, key.name));
            }
            if (key.name != keys::kDuration || !isHead) continue;
            // One that is no number is what is usual for such a command: nothing more follows.
            made.durationMs = known.IsRead() ? known.value : isInRange ? 0 : 1;
            namesTags = isInRange && made.durationMs == 0;
        }
        made.isLongScene = isInRange && made.durationMs == 0;
    }

    // What is left when the keys have been read: the first kMostPairs, frequencies in their range.
    void CheckPairs(ElementMeaning& made) {
        const std::vector<const KeyMeaning*> pairs = made.Pairs();
        for (size_t i = 0; i < std::min(pairs.size(), kMostPairs); ++i) {
            const KeyMeaning& pair = *pairs[i];
            const bool isRead =
                tarquel::IsFrequencyOpcode(pair.code) && IsLoaderNumber(pair.key->value);
            if (!isRead || (pair.value >= kLowestKhz && pair.value <= kHighestKhz)) continue;
            Say(Remark::kFrequency, true, pair.key, "");
        }
        if (pairs.size() <= kMostPairs) return;
        Say(Remark::kTooMany, false, pairs[kMostPairs]->key,
            "tarquel: xml is invalid, too many elements");
        for (size_t i = kMostPairs; i < pairs.size(); ++i) {
            made.keys[static_cast<size_t>(pairs[i] - made.keys.data())].isCut = true;
        }
    }

    void CheckEnds() {
        for (size_t i = 0; i < mMeaning.elements.size(); ++i) {
            const ElementMeaning& element = mMeaning.elements[i];
            if (element.durationMs != 0) continue;
            const KeyMeaning* duration = element.FindHead(keys::kDuration);
            mMeaning.remarks.push_back(
                {Remark::kEndless, true, i, duration ? duration->key : nullptr,
                 fmt::format("tarquel don't support multi-action in long term scene, cmdId is {}",
                             mCommand.id)});
        }
    }

    void ReadInteractive(ElementMeaning& made) {
        made.durationMs = -1;
        for (const SceneKey& key : made.element->keys) {
            const bool isKnown =
                std::find(tarquel::kInteractiveKeys.begin(), tarquel::kInteractiveKeys.end(),
                          key.name) != tarquel::kInteractiveKeys.end();
            const bool isHead = key.name == keys::kDuration || key.name == keys::kBoostLimitLevel;
            const KeyMeaning& known = AddKey(made, key,
                                             !isKnown ? Kind::kUnknown
                                             : isHead ? Kind::kHead
                                                      : Kind::kText);
            if (!isKnown) {
                Say(Remark::kUnknownKey, true, &key,
                    fmt::format("inter xml is invalid, cmdId is {} element is {}", mCommand.id,
                                key.name));
            }
            const bool isFirst = known.first + 1 == made.keys.size();
            if (key.name == keys::kDuration && isFirst) made.durationMs = known.value;
        }
    }

    // Each key counts, the last one of a name in the end; elements behind the first are passed
    // over.
    void ReadDescription(ElementMeaning& made) {
        const bool isLevel = made.element->name != keys::kCpuInfo;
        const std::optional<int> level = LevelOf(*made.element);
        for (const SceneKey& key : made.element->keys) {
            KeyMeaning& known = AddKey(made, key, Kind::kText);
            known.first = made.keys.size() - 1;
            if (mMeaning.elements.size() > 1) continue;
            if (isLevel && !level) return Say(Remark::kLevelName, true, nullptr, "");
            if (key.value.empty()) {
                Say(Remark::kNoValue, false, &key,
                    isLevel ? "tarquel: ParseFreqLevelInfo failed!"
                            : "tarquel: ParserCpuInfo failed!");
            } else if (!isLevel) {
                CheckCpuInfo(key);
            } else if (*level < 0 || *level > kHighestLevel) {
                Say(Remark::kLevelNumber, false, &key,
                    fmt::format("tarquel: ParseFreqLevelInfo failed! level {} is not 0 to 9, "
                                "element is {}",
                                *level, key.name));
            }
        }
    }

    void CheckCpuInfo(const SceneKey& key) {
        if (key.name == keys::kIsolation) {
            int number = 0;
            const int count = std::sscanf(key.value.c_str(), "%d", &number);
            if (count == 1) return;
            Say(Remark::kIsolation, false, &key,
                fmt::format("tarquel: get cpu isolation info failed!, {}", count));
            return;
        }
        const auto isIts = [&](const ClusterKeys& named) { return named.cpus == key.name; };
        if (std::none_of(std::begin(kClusterKeys), std::end(kClusterKeys), isIts)) return;
        const int count = CpuRangeNumbers(key.value);
        if (count == 2) return;
        Say(Remark::kCpuRange, false, &key,
            fmt::format("tarquel: get cpu node info failed!, {}", count));
    }

    const SceneCommand& mCommand;
    const std::optional<Layout> mLayout;  // that gives tags their names; none: they have none
    CommandMeaning mMeaning;
};

}  // namespace

std::optional<int> FindKeyOpcode(std::string_view key) {
    const int32_t* opcode = kOpcodes.Find(key);
    return opcode ? std::optional<int>(*opcode) : std::nullopt;
}

int HalValueOfKey(int opcode, const std::string& value) {
    const int number = std::atoi(value.c_str());
    return tarquel::IsFrequencyOpcode(opcode) ? number / 1000 : number;
}

int DurationOf(const SceneElement& element) {
    return FindNumber(element, keys::kDuration).value_or(0);
}

int BoostLimitLevelOf(const SceneElement& element) {
    const std::optional<int> digits = FindNumber(element, keys::kBoostLimitLevel);
    return digits ? *digits & 0xF : -1;
}

bool IsLongScene(const SceneCommand& command) {
    return tarquel::IsLongTermScene(command.id) && DurationOf(command.elements.front()) == 0;
}

int CpuRangeNumbers(const std::string& value) {
    int first = 0;
    int last = 0;
    return std::sscanf(value.c_str(), "%d-%d", &first, &last);
}

bool NamesPrimeCluster(const SceneCommand& command) {
    if (!DescribesClusters(command)) return false;
    const std::vector<SceneKey>& all = command.elements.front().keys;
    return std::any_of(all.begin(), all.end(), [](const SceneKey& key) {
        return key.name == keys::kPrimeCpus && CpuRangeNumbers(key.value) == 2;
    });
}

bool KeyMeaning::IsRead() const {
    return IsLoaderNumber(key->value);
}

int KeyMeaning::HandedOn() const {
    return kind == Kind::kOpcode ? HalValueOfKey(code, key->value) : value;
}

const KeyMeaning* ElementMeaning::FindHead(std::string_view name) const {
    const auto found = std::find_if(keys.rbegin(), keys.rend(), [&](const KeyMeaning& key) {
        return key.kind == KeyMeaning::Kind::kHead && key.key->name == name;
    });
    return found == keys.rend() ? nullptr : &*found;
}

int ElementMeaning::HeadValue(std::string_view name, int fallback) const {
    const KeyMeaning* head = FindHead(name);
    return head ? head->value : fallback;
}

std::vector<const KeyMeaning*> ElementMeaning::Pairs() const {
    std::vector<const KeyMeaning*> pairs;
    for (size_t i = 0; i < keys.size(); ++i) {
        const bool isPair = keys[i].IsTunable() || keys[i].kind == Kind::kText;
        if (isPair && keys[i].first == i) pairs.push_back(&keys[i]);
    }
    std::stable_sort(pairs.begin(), pairs.end(), [this](const KeyMeaning* a, const KeyMeaning* b) {
        return command->interactive ? a->key->name < b->key->name : a->code < b->code;
    });
    return pairs;
}

std::vector<const KeyMeaning*> ElementMeaning::Kept() const {
    std::vector<const KeyMeaning*> kept = Pairs();
    std::erase_if(kept, [](const KeyMeaning* pair) { return pair->isCut; });
    return kept;
}

bool CommandMeaning::IsRefused() const {
    return std::any_of(remarks.begin(), remarks.end(),
                       [](const LoaderRemark& remark) { return remark.refuses; });
}

size_t CommandMeaning::RemarksSaid() const {
    const auto refusal = std::find_if(remarks.begin(), remarks.end(),
                                      [](const LoaderRemark& remark) { return remark.refuses; });
    return static_cast<size_t>(refusal - remarks.begin()) + (refusal == remarks.end() ? 0 : 1);
}

std::optional<int> CommandMeaning::FindNumber(std::string_view name) const {
    std::optional<int> number;
    for (const ElementMeaning& element : elements) {
        if (const KeyMeaning* head = element.FindHead(name)) number = head->value;
    }
    return number;
}

Place CommandMeaning::PlaceOf(const LoaderRemark& remark) const {
    return remark.key ? remark.key->place : elements[remark.element].element->place;
}

SceneMeaning::SceneMeaning(const SceneFile& scenes) {
    Layout layout = Layout::kTwoClusters;
    for (const SceneCommand& command : scenes.Commands()) {
        if (!DescribesClusters(command)) continue;
        if (NamesPrimeCluster(command)) layout = Layout::kThreeClusters;
        mClusters.push_back({command.id, layout});
    }
}

CommandMeaning SceneMeaning::Of(const SceneCommand& command) const {
    std::optional<Layout> layout;
    for (const Clusters& clusters : mClusters) {
        if (clusters.id < command.id) layout = clusters.layout;
    }
    return CommandReader(command, layout).Read();
}

bool DescribesClusters(const SceneCommand& command) {
    return !command.interactive && command.elements.front().name == keys::kCpuInfo;
}

bool IsDescription(const SceneCommand& command) {
    return !command.interactive && IsDescription(command.elements.front());
}

bool IsDescription(const SceneElement& element) {
    return element.name == keys::kCpuInfo || element.name.starts_with(keys::kFreqLevelInfo);
}

std::optional<int> LevelOf(const SceneElement& element) {
    if (!element.name.starts_with(keys::kFreqLevelInfo)) return std::nullopt;
    const char* digits = element.name.c_str() + keys::kFreqLevelInfo.size();
    char* end = nullptr;
    errno = 0;
    const long level = std::strtol(digits, &end, 10);
    if (end == digits || errno != 0 || level < INT_MIN || level > INT_MAX) return std::nullopt;
    return static_cast<int>(level);
}

std::array<int, 8> LevelDigits(int value) {
    std::array<int, 8> digits{};
    auto rest = static_cast<uint32_t>(value);
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
        *digit = static_cast<int>(rest & 0xF);
        rest >>= 4;
    }
    return digits;
}

std::string WhereOf(const SceneCommand& command, const SceneElement& element) {
    return "command " + command.Label() + ", <" + element.name + ">";
}

}  // namespace lab

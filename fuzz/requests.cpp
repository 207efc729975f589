#include "fuzz/requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <climits>

#include "lab/names/node_names.h"
#include "lab/scenes/scene_meaning.h"
#include "loader/vocabulary_table.h"

namespace fuzz {
namespace {

constexpr size_t kMostTags = 6;

constexpr auto kOddTags = std::to_array<int>({-1, 134, 1023, INT_MAX});
constexpr auto kSpecialTags = std::to_array<int>({12, 40, 41, 57, 82, 98, 127, 128});
constexpr auto kOddValues = std::to_array<int>({0, 1, -1, -2, INT_MAX, INT_MIN, 1000, 65535000});
constexpr auto kOddOpcodes = std::to_array<int>({0, -1, INT_MAX, 0x40C80000, 0x40810000});
constexpr auto kMessages = std::to_array<const char*>({
    "app=x|targetPid=4711",
    "targetPid=-5",
    "|||targetPid=99999999999999999999|",
    "targetPid=",
});

std::string PairsText(const std::vector<lab::TagValue>& tags) {
    std::string text;
    for (const lab::TagValue& pair : tags) text += fmt::format(" {}={}", pair.tag, pair.value);
    return text;
}

std::string ListText(const std::vector<int>& values) {
    return fmt::format("[{}]", fmt::join(values, " "));
}

// One overload for each kind of deed.
struct Describer {
    std::string operator()(const lab::DoCommand& asked) const {
        return fmt::format("do {} {} {}", asked.cmdId, ListText(asked.payload), asked.message);
    }
    std::string operator()(const lab::DoInteractive& asked) const {
        return fmt::format("inter {} {}", asked.cmdId, ListText(asked.payload));
    }
    std::string operator()(const lab::SetLimits& asked) const {
        return fmt::format("limit by {}:{}", asked.clientId, PairsText(asked.tags));
    }
    std::string operator()(const lab::GetValues& asked) const {
        return "get " + ListText(asked.tags);
    }
    std::string operator()(const lab::SetStateBits& asked) const {
        return fmt::format("state {}", asked.state);
    }
    std::string operator()(const lab::SetDebugSwitch& asked) const {
        return asked.on ? "debug on" : "debug off";
    }
    std::string operator()(const lab::GetCeilings& asked) const {
        return fmt::format("ceilings {}{}", asked.cmdId, asked.release ? " for release" : "");
    }
    std::string operator()(const lab::CountBoost& asked) const {
        return fmt::format("count boost {}", asked.cmdId);
    }
    std::string operator()(const lab::SetOnDemand& asked) const {
        std::string text = "on demand";
        for (const auto& [id, ms] : asked.msOfCommand) text += fmt::format(" {}={}", id, ms);
        return text;
    }
    std::string operator()(const BreakNode& asked) const {
        return fmt::format("fault {} of {}", static_cast<int>(asked.fault.kind), asked.path);
    }
    std::string operator()(const BreakTimer&) const { return "the timer cannot be set"; }
    std::string operator()(const RefuseLocks& asked) const {
        return fmt::format("the HAL refuses {} with {}", asked.count, asked.result);
    }
    std::string operator()(const RunOwn& asked) const {
        std::string text = fmt::format("own{}{} payload {}x{}", asked.isEndless ? " endless" : "",
                                       asked.isCompleted ? " completed" : "", asked.payloadNum,
                                       ListText(asked.payload));
        for (const OwnAction& action : asked.actions) {
            text += fmt::format(" | {} {}ms level {} mask {} tagLen {} {}", action.cmdId,
                                action.durationMs, action.boostLimitLevel, action.stateMask,
                                action.tagLen, ListText(action.perfList));
        }
        return text;
    }
    std::string operator()(const HandOver& asked) const {
        return asked.asEvent ? "hand over a lock as an event" : "hand over a lock";
    }
    std::string operator()(const Misuse& asked) const {
        return fmt::format("misuse {} with {}", static_cast<int>(asked.kind), asked.number);
    }
    // The rest needs no more than its place in the list of kinds.
    template <typename Asked>
    std::string operator()(const Asked&) const {
        return fmt::format("request kind {}", lab::Request(Asked()).index());
    }
    std::string operator()(const lab::Request& asked) const { return std::visit(*this, asked); }
};

}  // namespace

const std::vector<int>& AllTags() {
    static const std::vector<int> tags = [] {
        std::vector<int> all(kOddTags.begin(), kOddTags.end());
        for (int tag = 0; tag <= lab::kHighestTag; ++tag) all.push_back(tag);
        return all;
    }();
    return tags;
}

std::string Describe(const Deed& deed) {
    return fmt::format("after {} ms: {}", deed.afterMs, std::visit(Describer(), deed.what));
}

RequestMaker::RequestMaker(const lab::DeviceProfile& device, const lab::SceneFile& scenes,
                           const Options& options)
    : mDevice(device), mOptions(options) {
    for (const lab::SceneCommand& command : scenes.Commands()) {
        if (lab::IsDescription(command)) continue;
        (command.interactive ? mInteractive : mCommands).push_back(command.id);
    }
    for (int tag = 0; tag <= lab::kHighestTag; ++tag) {
        for (const std::string& path : lab::TagNodes(tag, device)) mNodes.push_back(path);
    }
}

Deed RequestMaker::Draw(Source& source) const {
    Deed deed;
    if (source.Chance(40)) {
        deed.afterMs = source.Chance(70) ? source.Between(0, std::min(100, mOptions.longestWaitMs))
                                         : source.Between(0, mOptions.longestWaitMs);
    }
    const size_t kind = source.Below(100);
    if (kind < 26) {
        deed.what = DrawCommand(source);
    } else if (kind < 46) {
        deed.what = DrawLimits(source);
    } else if (kind < 53) {
        deed.what = DrawGroup(source);
    } else if (kind < 60) {
        deed.what = DrawControl(source);
    } else if (kind < 70) {
        deed.what = DrawOwn(source);
    } else if (kind < 78) {
        deed.what = DrawQuery(source);
    } else if (kind < 83) {
        deed.what = DrawSwitch(source);
    } else if (kind < 90) {
        DrawFate(source, deed);
    } else if (kind < 97) {
        constexpr size_t kKinds = static_cast<size_t>(Misuse::Kind::kLast) + 1;
        const auto misuse = static_cast<Misuse::Kind>(source.Below(kKinds));
        deed.what = Misuse{misuse, source.Chance(50) ? source.Pick(kOddValues) : source.Int()};
    } else {
        deed.what = HandOver{source.Chance(50)};
    }
    return deed;
}

lab::Request RequestMaker::DrawCommand(Source& source) const {
    if (source.Chance(3)) return lab::DoInteractive{source.Pick(mInteractive), {0}};
    lab::DoCommand asked{source.Pick(mCommands), {}, ""};
    const size_t how = source.Below(8);
    if (how < 3) asked.payload = {0};
    if (how == 3 || how == 4) asked.payload = {-1};
    if (how == 5) asked.payload = {source.Int()};
    if (how == 6) asked.payload = {source.Between(-1, 1), source.Between(-1, 1)};
    if (source.Chance(5)) asked.message = source.Pick(kMessages);
    return asked;
}

int RequestMaker::DrawTag(Source& source) const {
    if (source.Chance(60)) return source.Pick(kSharedLimits);
    if (source.Chance(10)) return source.Pick(kSpecialTags);
    return source.Chance(10) ? source.Pick(kOddTags) : source.Between(0, lab::kHighestTag);
}

int RequestMaker::DrawValue(Source& source, int tag) const {
    if (tag == lab::kGroupTag) {
        if (source.Chance(3)) return INT_MIN;
        return source.Chance(20) ? -1 : DrawDurationMs(source);
    }
    if (source.Chance(25)) return 0;
    if (source.Chance(3)) return source.Pick(kOddValues);
    const size_t cluster = static_cast<size_t>(tag) / 3;
    if (tag >= 0 && tag <= 8) {
        const auto& khz = mDevice.clusters[std::min(cluster, mDevice.clusters.size() - 1)].khz;
        return static_cast<int>(source.Pick(khz)) + (source.Chance(10) ? source.Between(-1, 1) : 0);
    }
    if (tag == 9 || tag == 10) return static_cast<int>(source.Pick(mDevice.gpuMhz)) * 1'000'000;
    return source.Between(0, 4000);
}

lab::Request RequestMaker::DrawLimits(Source& source) const {
    lab::SetLimits asked;
    asked.clientId = source.Chance(3) ? source.Int() : source.Between(1, 4);
    const size_t count = 1 + source.Below(kMostTags);
    for (size_t i = 0; i < count; ++i) {
        const int tag = DrawTag(source);
        asked.tags.push_back({tag, DrawValue(source, tag)});
    }
    return asked;
}

lab::Request RequestMaker::DrawGroup(Source& source) const {
    lab::SetLimits asked;
    asked.clientId = source.Between(1, 4);
    asked.tags.push_back({lab::kGroupTag, DrawValue(source, lab::kGroupTag)});
    const size_t count = source.Below(kMostTags);
    for (size_t i = 0; i < count; ++i) {
        const int tag = DrawTag(source);
        asked.tags.push_back({tag, DrawValue(source, tag)});
    }
    return asked;
}

lab::Request RequestMaker::DrawControl(Source& source) const {
    const int client = source.Chance(80) ? 2 : source.Between(1, 4);
    return lab::SetLimits{client, {{lab::kControlTypeTag, source.Between(0, 11)}}};
}

lab::Request RequestMaker::DrawQuery(Source& source) const {
    switch (source.Below(7)) {
        case 0:
            return lab::GetStatus{};
        case 1:
            return lab::DumpLimits{};
        case 2:
            return lab::GetCeilings{source.Pick(mCommands), source.Chance(50)};
        case 3:
            return lab::AskBoost{source.Pick(mCommands)};
        case 4:
            return lab::GetChipType{source.Pick(mCommands)};
        case 5:
            return source.Chance(50) ? lab::Request(lab::ProbeAffinity{source.Int(), source.Int()})
                                     : lab::Request(lab::SetSchedLevel{source.Int(), {{1, 1}}});
        default: {
            lab::GetValues asked;
            const size_t count = 1 + source.Below(kMostTags);
            for (size_t i = 0; i < count; ++i) asked.tags.push_back(DrawTag(source));
            return asked;
        }
    }
}

lab::Request RequestMaker::DrawSwitch(Source& source) const {
    switch (source.Below(3)) {
        case 0:
            return lab::SetStateBits{source.Chance(80) ? source.Between(0, 7) : source.Int()};
        case 1:
            return lab::SetDebugSwitch{source.Chance(50)};
        default:
            return lab::CountBoost{source.Pick(mCommands)};
    }
}

void RequestMaker::DrawFate(Source& source, Deed& deed) const {
    using FaultKind = lab::NodeFault::Kind;
    constexpr auto kKinds = std::to_array<FaultKind>({FaultKind::kMissing, FaultKind::kUnreadable,
                                                      FaultKind::kUnwritable, FaultKind::kShort,
                                                      FaultKind::kRefusing, FaultKind::kSlow});
    constexpr int kSlowMs = 5;
    const size_t kind = source.Below(8);
    if (kind == 0) {
        deed.what = BreakTimer();
    } else if (kind < 3) {
        deed.what = BreakNode{source.Pick(mNodes), {source.Pick(kKinds), kSlowMs}};
    } else if (kind < 6) {
        deed.what = RefuseLocks{source.Between(1, 3), -source.Between(0, 1)};
    } else {
        const int least = mOptions.leastOnDemandMs;
        const int most = std::min(mOptions.longestMs, 5000);
        const int ms = source.Chance(50) ? least : source.Between(least, most);
        deed.what = lab::Request(lab::SetOnDemand{{{source.Pick(mCommands), ms}}});
    }
}

int RequestMaker::DrawDurationMs(Source& source) const {
    return source.Chance(30) ? 0 : source.Between(1, std::min(mOptions.longestMs, 60'000));
}

RunOwn RequestMaker::DrawOwn(Source& source) const {
    RunOwn asked;
    if (source.Chance(40)) {
        asked.actions.push_back(
            DrawOwnScene(source, kFirstOwnScene + source.Between(0, kOwnScenes - 1)));
    } else {
        const int cmdId = kFirstOwnCommand + source.Between(0, kOwnCommands - 1);
        const size_t count = 1 + source.Below(kMostOwnActions);
        for (size_t i = 0; i < count; ++i) asked.actions.push_back(DrawOwnAction(source, cmdId));
        asked.isEndless = source.Chance(3);
        asked.isCompleted = source.Chance(30);
    }
    const size_t how = source.Below(8);
    if (how < 4) asked.payload = {0};
    if (how == 4 || how == 5) asked.payload = {-1};
    if (how == 6) asked.payload = {source.Int()};
    asked.payloadNum = source.Chance(5) ? static_cast<unsigned>(source.Int()) : how == 7 ? 0 : 1;
    return asked;
}

OwnAction RequestMaker::DrawOwnAction(Source& source, int cmdId) const {
    OwnAction action;
    action.cmdId = cmdId;
    action.durationMs = source.Chance(3) ? source.Between(-2, 0) : DrawDurationMs(source);
    if (source.Chance(30)) {
        action.boostLimitLevel = source.Between(-1, 5);
        for (int i = 0; i < 4; ++i) action.boostLevels.push_back(source.Between(-1, 10));
    }
    if (source.Chance(10)) action.stateMask = source.Between(-1, 4);
    action.skip = source.Chance(3);
    action.taskBoost = source.Chance(10);
    action.breakThrough = !source.Chance(10);
    const size_t pairs = source.Chance(5) ? source.Below(45) : source.Below(4);
    for (size_t i = 0; i < pairs; ++i) {
        action.perfList.push_back(source.Chance(10) ? source.Pick(kOddOpcodes)
                                                    : source.Pick(tarquel::kOpcodeNames).opcode);
        action.perfList.push_back(source.Chance(5) ? source.Pick(kOddValues)
                                                   : source.Between(0, 3000));
    }
    action.tagLen = static_cast<int>(pairs);
    if (source.Chance(5)) action.perfList.push_back(source.Int());
    if (source.Chance(5)) action.tagLen = source.Pick(kOddValues);
    return action;
}

OwnAction RequestMaker::DrawOwnScene(Source& source, int cmdId) const {
    OwnAction action;
    action.cmdId = cmdId;
    const size_t pairs = 1 + source.Below(kMostTags);
    for (size_t i = 0; i < pairs; ++i) {
        const int tag = source.Chance(95) ? source.Pick(kSharedLimits) : DrawTag(source);
        action.perfList.push_back(tag);
        action.perfList.push_back(DrawValue(source, tag));
    }
    action.tagLen = static_cast<int>(pairs);
    return action;
}

}  // namespace fuzz

// The steps of a scenario that are requests of the policy server.
#include <fmt/format.h>

#include "lab/server/step_reader.h"

namespace lab {
namespace {

const char* ControlMeaning(int type) {
    constexpr const char* kMeanings[] = {
        "limits lifted, boosts on",
        "changes nothing",
        "limits in force",
        "changes nothing",
        "low temperature: no boosts",
        "thermal level 1",
        "thermal level 2, limits in force",
        "thermal level 3, limits in force",
        "thermal level 4, limits in force",
        "limits in force",
        "low temperature: no boosts",
    };
    return type >= 0 && type <= 10 ? kMeanings[type] : "changes nothing";
}

std::string TagsText(const std::vector<TagValue>& tags, Layout layout, size_t from = 0) {
    std::string text;
    for (size_t i = from; i < tags.size(); ++i) {
        const auto& [tag, value] = tags[i];
        const TagFacts* facts = FindTagFacts(tag, layout);
        const bool isLimit =
            facts && (facts->bound == Bound::kFloor || facts->bound == Bound::kCeiling);
        text += (text.empty() ? "" : ", ") + TagLabel(tag, layout) + " ";
        if (tag == kControlTypeTag) {
            text += fmt::format("{} ({})", value, ControlMeaning(value));
        } else if (isLimit && value == 0) {
            text += "lifted";
        } else {
            text += facts && value >= 0 ? BoundText(facts->bound, value, facts->unit)
                                        : "= " + std::to_string(value);
        }
    }
    return text;
}

// `do`; `on` and `off`, with the payload of an event that begins and ends; `inter`.
Request ReadDo(StepInput& in) {
    const std::string kind = in.kind.field;
    const SceneCommand& command = in.ReadCommand(in.value, kind == "inter");
    in.made.text = fmt::format(fmt::runtime(in.kind.words), command.Label());
    std::vector<int> payload;
    if (kind == "on" || kind == "inter") payload = {0};
    if (kind == "off") payload = {-1};
    if (const YamlNode* values = in.step.Find("payload")) {
        payload.clear();
        for (const YamlNode& value : values->AsList("a list of numbers")) {
            payload.push_back(ReadInt32(value, "a payload value"));
        }
        in.made.text += fmt::format(" payload {}", fmt::join(payload, " "));
    }
    if (kind == "inter") return DoInteractive{command.id, payload};
    const YamlNode* message = in.step.Find("message");
    return DoCommand{command.id, payload, message ? message->AsText("a message") : ""};
}

// A request that names a command alone.
template <typename Asked>
Request ReadNamed(StepInput& in) {
    const SceneCommand& command = in.ReadCommand(in.value);
    in.made.text = fmt::format(fmt::runtime(in.kind.words), command.Label());
    return Asked{command.id};
}

template <typename Asked>
Request ReadBare(StepInput& in) {
    const bool isEmpty = in.value.kind == YamlNode::Kind::kNull;
    const bool isTrue = in.value.kind == YamlNode::Kind::kScalar && in.value.scalar == "true";
    if (!isEmpty && !isTrue) {
        in.value.Fail(fmt::format("'{0}' takes no value; write '{0}:' alone", in.kind.field));
    }
    in.made.text = in.kind.words;
    return Asked{};
}

Request ReadLimit(StepInput& in) {
    ExpectMap(in.value, "a limit: {client: thermal, tags: {big_max: 1804800}}", {"client", "tags"});
    SetLimits request{ReadClient(in.value.Get("client")), in.ReadTagValues(in.value.Get("tags"))};
    in.made.text = fmt::format("limit by {}: {}", ClientLabel(request.clientId),
                               TagsText(request.tags, in.layout));
    return request;
}

Request ReadGroup(StepInput& in) {
    ExpectMap(in.value, "a group: {client: camera, duration_ms: 2000, tags: {big_min: 1113600}}",
              {"client", "duration_ms", "tags"});
    SetLimits request{ReadClient(in.value.Get("client")), {}};
    const int duration =
        ReadInt32(in.value.Get("duration_ms"), "ms; 0: until the next group; -1: cancel", -1);
    request.tags.push_back({kGroupTag, duration});
    if (const YamlNode* tags = in.value.Find("tags")) {
        const std::vector<TagValue> more = in.ReadTagValues(*tags);
        request.tags.insert(request.tags.end(), more.begin(), more.end());
    } else if (duration >= 0) {
        in.value.Fail("this group has no tags; only a cancelling one (duration_ms: -1) may");
    }
    in.made.text = fmt::format(
        "group by {} {}{}{}", ClientLabel(request.clientId),
        duration < 0 ? "cancelled"
                     : (duration == 0 ? "until replaced" : fmt::format("for {} ms", duration)),
        request.tags.size() > 1 ? ": " : "", TagsText(request.tags, in.layout, 1));
    return request;
}

Request ReadControl(StepInput& in) {
    const int type = ReadInt32(in.value, "a control type", 0, 10);
    const YamlNode* client = in.step.Find("client");
    const int clientId = client ? ReadClient(*client) : 2;
    in.made.text = fmt::format("control type {} by {} ({})", type, ClientLabel(clientId),
                               ControlMeaning(type));
    return SetLimits{clientId, {{kControlTypeTag, type}}};
}

Request ReadGet(StepInput& in) {
    GetValues request;
    for (const YamlNode& item : in.value.AsList("a list of tags")) {
        request.tags.push_back(in.ReadTag(item));
        in.made.text +=
            (in.made.text.empty() ? "get " : ", ") + TagLabel(request.tags.back(), in.layout);
    }
    if (request.tags.empty()) in.value.Fail("name at least one tag");
    return request;
}

Request ReadState(StepInput& in) {
    const int state = ReadInt32(in.value, "state bits");
    in.made.text = fmt::format("state 0x{:x}", static_cast<unsigned>(state));
    return SetStateBits{state};
}

Request ReadDebug(StepInput& in) {
    const bool on = in.value.AsBool("on or off");
    in.made.text = on ? "debug on" : "debug off";
    return SetDebugSwitch{on};
}

Request ReadCeilings(StepInput& in) {
    ExpectMap(in.value, "a query: {command: game_limit, release: false}", {"command", "release"});
    const SceneCommand& command = in.ReadCommand(in.value.Get("command"));
    const YamlNode* release = in.value.Find("release");
    const bool isRelease = release && release->AsBool("true or false");
    in.made.text = "ceilings of " + command.Label() + (isRelease ? " to release" : "");
    return GetCeilings{command.id, isRelease};
}

Request ReadSchedLevel(StepInput& in) {
    ExpectMap(in.value, "a level: {level: 1, tags: {sched_boost: 1}}", {"level", "tags"});
    SetSchedLevel request{ReadInt32(in.value.Get("level"), "a level"), {}};
    if (const YamlNode* tags = in.value.Find("tags")) request.tags = in.ReadTagValues(*tags);
    in.made.text = fmt::format("sched level {}", request.level);
    return request;
}

Request ReadAffinity(StepInput& in) {
    ExpectMap(in.value, "an affinity: {mask: 0xf0, pid: 1234}", {"mask", "pid"});
    const ProbeAffinity request{ReadInt32(in.value.Get("mask"), "a mask of CPUs", 0),
                                ReadInt32(in.value.Get("pid"), "a process", 0)};
    in.made.text =
        fmt::format("affinity 0x{:x} for {}", static_cast<unsigned>(request.mask), request.pid);
    return request;
}

}  // namespace

std::vector<StepKind> RequestKinds() {
    return {
        {"do", {"payload", "message"}, ReadDo, "do {}"},
        {"on", {"message"}, ReadDo, "on {}"},
        {"off", {}, ReadDo, "off {}"},
        {"inter", {"payload"}, ReadDo, "inter {}"},
        {"limit", {}, ReadLimit},
        {"group", {}, ReadGroup},
        {"control", {"client"}, ReadControl},
        {"get", {}, ReadGet},
        {"status", {}, ReadBare<GetStatus>, "status"},
        {"dump", {}, ReadBare<DumpLimits>, "dump the clients' limits"},
        {"state", {}, ReadState},
        {"debug", {}, ReadDebug},
        {"boost_count", {}, ReadNamed<CountBoost>, "count a boost of {}"},
        {"can_boost", {}, ReadNamed<AskBoost>, "may {} boost?"},
        {"ceilings", {}, ReadCeilings},
        {"sched_level", {}, ReadSchedLevel},
        {"affinity", {}, ReadAffinity},
        {"chip_type", {}, ReadNamed<GetChipType>, "chip type for {}"},
    };
}

}  // namespace lab

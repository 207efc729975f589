// The steps of a scenario that are requests of the policy server.
#include <fmt/format.h>

#include "lab/server/step_reader.h"

namespace lab {
namespace {

void ExpectNothing(const YamlNode& value, const std::string& step) {
    if (value.kind == YamlNode::Kind::kNull) return;
    if (value.kind != YamlNode::Kind::kScalar || value.scalar != "true") {
        value.Fail("'" + step + "' takes no value; write '" + step + ":' alone");
    }
}

std::string PayloadText(const std::vector<int>& payload) {
    std::string text;
    for (int value : payload) text += (text.empty() ? "" : " ") + std::to_string(value);
    return text;
}

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

}  // namespace

std::string StepReader::TagsText(const std::vector<TagValue>& tags, size_t from) const {
    std::string text;
    for (size_t i = from; i < tags.size(); ++i) {
        const auto& [tag, value] = tags[i];
        const TagFacts* facts = FindTagFacts(tag, mLayout);
        const bool isLimit =
            facts && (facts->bound == Bound::kFloor || facts->bound == Bound::kCeiling);
        text += (text.empty() ? "" : ", ") + TagLabel(tag, mLayout) + " ";
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

Request StepReader::ReadDo(const YamlNode& step, const YamlNode& value, Step& made) {
    const SceneCommand& command = ReadCommand(value);
    DoCommand request{command.id, {}, ""};
    made.text = "do " + command.Label();
    if (const YamlNode* payload = step.Find("payload")) {
        request.payload = ReadInts(*payload, "a payload value");
        made.text += " payload " + PayloadText(request.payload);
    }
    if (const YamlNode* message = step.Find("message")) {
        request.message = message->AsText("a message");
    }
    return request;
}

Request StepReader::ReadOn(const YamlNode& step, const YamlNode& value, Step& made) {
    const SceneCommand& command = ReadCommand(value);
    made.text = "on " + command.Label();
    const YamlNode* message = step.Find("message");
    return DoCommand{command.id, {0}, message ? message->AsText("a message") : ""};
}

Request StepReader::ReadOff(const YamlNode&, const YamlNode& value, Step& made) {
    const SceneCommand& command = ReadCommand(value);
    made.text = "off " + command.Label();
    return DoCommand{command.id, {-1}, ""};
}

Request StepReader::ReadInteractive(const YamlNode& step, const YamlNode& value, Step& made) {
    const SceneCommand& command = ReadCommand(value, true);
    made.text = "inter " + command.Label();
    DoInteractive request{command.id, {0}};
    if (const YamlNode* payload = step.Find("payload")) {
        request.payload = ReadInts(*payload, "a payload value");
        made.text += " payload " + PayloadText(request.payload);
    }
    return request;
}

Request StepReader::ReadLimit(const YamlNode&, const YamlNode& value, Step& made) {
    AsMap(value, "a limit: {client: thermal, tags: {big_max: 1804800}}", {"client", "tags"});
    SetLimits request{ReadClient(value.Get("client")), ReadTagValues(value.Get("tags"))};
    made.text =
        fmt::format("limit by {}: {}", ClientLabel(request.clientId), TagsText(request.tags));
    return request;
}

Request StepReader::ReadGroup(const YamlNode&, const YamlNode& value, Step& made) {
    AsMap(value, "a group: {client: camera, duration_ms: 2000, tags: {big_min: 1113600}}",
          {"client", "duration_ms", "tags"});
    SetLimits request{ReadClient(value.Get("client")), {}};
    const int duration =
        AsInt32(value.Get("duration_ms"), "ms; 0: until the next group; -1: cancel", -1, INT32_MAX);
    request.tags.push_back({kGroupTag, duration});
    if (const YamlNode* tags = value.Find("tags")) {
        const std::vector<TagValue> more = ReadTagValues(*tags);
        request.tags.insert(request.tags.end(), more.begin(), more.end());
    } else if (duration >= 0) {
        value.Fail("this group has no tags; only a cancelling one (duration_ms: -1) may");
    }
    made.text = fmt::format(
        "group by {} {}{}{}", ClientLabel(request.clientId),
        duration < 0 ? "cancelled"
                     : (duration == 0 ? "until replaced" : fmt::format("for {} ms", duration)),
        request.tags.size() > 1 ? ": " : "", TagsText(request.tags, 1));
    return request;
}

Request StepReader::ReadControl(const YamlNode& step, const YamlNode& value, Step& made) {
    const int type = AsInt32(value, "a control type", 0, 10);
    const YamlNode* client = step.Find("client");
    const int clientId = client ? ReadClient(*client) : 2;
    made.text = fmt::format("control type {} by {} ({})", type, ClientLabel(clientId),
                            ControlMeaning(type));
    return SetLimits{clientId, {{kControlTypeTag, type}}};
}

Request StepReader::ReadGet(const YamlNode&, const YamlNode& value, Step& made) {
    GetValues request;
    for (const YamlNode& item : value.AsList("a list of tags")) {
        request.tags.push_back(ReadTag(item));
        made.text += (made.text.empty() ? "get " : ", ") + TagLabel(request.tags.back(), mLayout);
    }
    if (request.tags.empty()) value.Fail("name at least one tag");
    return request;
}

Request StepReader::ReadStatus(const YamlNode&, const YamlNode& value, Step& made) {
    ExpectNothing(value, "status");
    made.text = "status";
    return GetStatus{};
}

Request StepReader::ReadDump(const YamlNode&, const YamlNode& value, Step& made) {
    ExpectNothing(value, "dump");
    made.text = "dump the clients' limits";
    return DumpLimits{};
}

Request StepReader::ReadState(const YamlNode&, const YamlNode& value, Step& made) {
    const int state = AsInt32(value, "state bits");
    made.text = fmt::format("state 0x{:x}", static_cast<unsigned>(state));
    return SetStateBits{state};
}

Request StepReader::ReadDebug(const YamlNode&, const YamlNode& value, Step& made) {
    const bool on = value.AsBool("on or off");
    made.text = on ? "debug on" : "debug off";
    return SetDebugSwitch{on};
}

Request StepReader::ReadBoostCount(const YamlNode&, const YamlNode& value, Step& made) {
    const SceneCommand& command = ReadCommand(value);
    made.text = "count a boost of " + command.Label();
    return CountBoost{command.id};
}

Request StepReader::ReadCanBoost(const YamlNode&, const YamlNode& value, Step& made) {
    const SceneCommand& command = ReadCommand(value);
    made.text = "may " + command.Label() + " boost?";
    return AskBoost{command.id};
}

Request StepReader::ReadCeilings(const YamlNode&, const YamlNode& value, Step& made) {
    AsMap(value, "a query: {command: game_limit, release: false}", {"command", "release"});
    const SceneCommand& command = ReadCommand(value.Get("command"));
    const YamlNode* release = value.Find("release");
    const bool isRelease = release && release->AsBool("true or false");
    made.text = "ceilings of " + command.Label() + (isRelease ? " to release" : "");
    return GetCeilings{command.id, isRelease};
}

Request StepReader::ReadSchedLevel(const YamlNode&, const YamlNode& value, Step& made) {
    AsMap(value, "a level: {level: 1, tags: {sched_boost: 1}}", {"level", "tags"});
    SetSchedLevel request{AsInt32(value.Get("level"), "a level"), {}};
    if (const YamlNode* tags = value.Find("tags")) request.tags = ReadTagValues(*tags);
    made.text = fmt::format("sched level {}", request.level);
    return request;
}

Request StepReader::ReadAffinity(const YamlNode&, const YamlNode& value, Step& made) {
    AsMap(value, "an affinity: {mask: 0xf0, pid: 1234}", {"mask", "pid"});
    const ProbeAffinity request{AsInt32(value.Get("mask"), "a mask of CPUs", 0),
                                AsInt32(value.Get("pid"), "a process", 0)};
    made.text =
        fmt::format("affinity 0x{:x} for {}", static_cast<unsigned>(request.mask), request.pid);
    return request;
}

Request StepReader::ReadChipType(const YamlNode&, const YamlNode& value, Step& made) {
    const SceneCommand& command = ReadCommand(value);
    made.text = "chip type for " + command.Label();
    return GetChipType{command.id};
}

}  // namespace lab

#include "lab/server/step_reader.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/names/node_names.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {
namespace {

const std::vector<std::string> kCommonFields = {"at", "after", "returns", "device"};

}  // namespace

std::map<std::string, std::string> ReadProperties(const YamlNode& node) {
    if (node.kind != YamlNode::Kind::kMap) {
        node.Fail("expected a map from property to value, such as {ro.logsystem.usertype: \"3\"}");
    }
    std::map<std::string, std::string> properties;
    for (const auto& [key, value] : node.fields) {
        properties[key.AsText("the name of a property")] = value.AsText("the property's value");
    }
    return properties;
}

int StepReader::AsInt32(const YamlNode& node, const std::string& what, int64_t low, int64_t high) {
    return static_cast<int>(node.AsInt(what, low, high));
}

const YamlNode& StepReader::AsMap(const YamlNode& node, const std::string& what,
                                  const std::vector<std::string>& fields) {
    if (node.kind != YamlNode::Kind::kMap) node.Fail("expected " + what);
    node.ExpectFields(what, fields);
    return node;
}

const std::vector<StepReader::Kind>& StepReader::Kinds() {
    static const std::vector<Kind> kinds = {
        {"do", {"payload", "message"}, &StepReader::ReadDo},
        {"on", {"message"}, &StepReader::ReadOn},
        {"off", {}, &StepReader::ReadOff},
        {"inter", {"payload"}, &StepReader::ReadInteractive},
        {"limit", {}, &StepReader::ReadLimit},
        {"group", {}, &StepReader::ReadGroup},
        {"control", {"client"}, &StepReader::ReadControl},
        {"get", {}, &StepReader::ReadGet},
        {"status", {}, &StepReader::ReadStatus},
        {"dump", {}, &StepReader::ReadDump},
        {"state", {}, &StepReader::ReadState},
        {"debug", {}, &StepReader::ReadDebug},
        {"boost_count", {}, &StepReader::ReadBoostCount},
        {"can_boost", {}, &StepReader::ReadCanBoost},
        {"ceilings", {}, &StepReader::ReadCeilings},
        {"sched_level", {}, &StepReader::ReadSchedLevel},
        {"affinity", {}, &StepReader::ReadAffinity},
        {"chip_type", {}, &StepReader::ReadChipType},
        {"on_demand", {}, &StepReader::ReadOnDemand},
        {"faults", {}, &StepReader::ReadFaultStep},
        {"hal", {}, &StepReader::ReadHal},
        {"node", {}, &StepReader::ReadNode},
        {"cpus", {}, &StepReader::ReadCpus},
        {"property", {}, &StepReader::ReadProperty},
        {"wait", {}, &StepReader::ReadWait},
        {"expect", {}, &StepReader::ReadExpect},
        {"repeat", {"steps"}, &StepReader::ReadRepeat},
    };
    return kinds;
}

std::vector<Step> StepReader::ReadList(const YamlNode& list, bool repeated) {
    std::vector<Step> steps;
    for (const YamlNode& node : list.AsList("steps")) {
        steps.push_back(ReadStep(node, repeated));
    }
    return steps;
}

Step StepReader::ReadStep(const YamlNode& node, bool repeated) {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const Kind& kind : Kinds()) all.emplace_back(kind.field);
        return all;
    }();
    if (node.kind != YamlNode::Kind::kMap) {
        node.Fail("a step is a map with one of: " + Join(names));
    }
    const Kind* found = nullptr;
    for (const auto& [key, value] : node.fields) {
        for (const Kind& kind : Kinds()) {
            if (key.scalar != kind.field) continue;
            if (found) {
                key.Fail(std::string("this step has '") + found->field + "' and '" + kind.field +
                         "'; make two steps of it");
            }
            found = &kind;
        }
    }
    std::vector<std::string> allowed = kCommonFields;
    if (!found) {
        allowed.insert(allowed.end(), names.begin(), names.end());
        for (const auto& [key, value] : node.fields) {
            const bool isCommon =
                key.scalar == "at" || key.scalar == "after" || key.scalar == "device";
            if (!isCommon) {
                key.Fail("there is no step '" + key.scalar + "'" + DidYouMean(key.scalar, names) +
                         "; a step has one of: " + Join(names));
            }
        }
        node.Fail("this step does nothing; give it one of: " + Join(names));
    }
    allowed.push_back(found->field);
    allowed.insert(allowed.end(), found->beside.begin(), found->beside.end());
    node.ExpectFields(std::string("a step '") + found->field + "'", allowed);

    Step made;
    made.line = node.line;
    ReadTime(node, repeated, made);
    PassTime(node, made);
    const Layout ownLayout = mLayout;
    ReadDevice(node, made);
    made.request = (this->*found->read)(node, node.Get(found->field), made);
    mLayout = ownLayout;
    if (const YamlNode* returns = node.Find("returns")) {
        made.returns = AsInt32(*returns, "the result that the request must have");
    }
    return made;
}

// A step of one device names the tags of that device's clusters.
void StepReader::ReadDevice(const YamlNode& node, Step& made) {
    const YamlNode* device = node.Find("device");
    if (!device) return;
    if (node.Find("repeat")) device->Fail("'repeat' is for every device; name it in its steps");
    made.device = device->AsText("the name of a device");
    const std::vector<std::string> names = DeviceProfileNames();
    if (std::find(names.begin(), names.end(), made.device) == names.end()) {
        device->Fail("there is no shipped device '" + made.device + "'" +
                     DidYouMean(made.device, names) + "; use one of: " + Join(names));
    }
    mLayout = LayoutOf(LoadDeviceProfile(made.device));
}

void StepReader::ReadTime(const YamlNode& node, bool repeated, Step& made) {
    const YamlNode* at = node.Find("at");
    const YamlNode* after = node.Find("after");
    if (at && after) after->Fail("a step has 'at' or 'after', not both");
    if (at && repeated) {
        at->Fail(
            "a repeated step cannot stand at one time; use 'after' (ms since the step before)");
    }
    made.absolute = at != nullptr;
    if (at) {
        made.ms = at->AsInt("ms since the start", 0, kLongestMs);
        if (made.ms < mNowMs) {
            at->Fail(fmt::format("{} ms is over: the step before is at {} ms", made.ms, mNowMs));
        }
    } else if (after) {
        made.ms = after->AsInt("ms since the step before", 0, kLongestMs);
    }
}

void StepReader::PassTime(const YamlNode& node, const Step& made) {
    mNowMs = made.absolute ? made.ms : mNowMs + made.ms;
    if (mNowMs > kLongestMs) node.Fail("the scenario lasts longer than ten years by here");
}

const SceneCommand& StepReader::ReadCommand(const YamlNode& node, bool interactive) const {
    const std::string& text = node.AsText("the name or id of a command");
    const SceneCommand* command = mScenes.Find(text);
    if (const std::optional<int64_t> id = ParseNumber(text); !command && id) {
        if (*id >= 0 && *id <= INT32_MAX) command = mScenes.Find(static_cast<int>(*id));
    }
    if (!command) {
        std::vector<std::string> names;
        for (const SceneCommand& known : mScenes.Commands()) {
            if (!known.name.empty()) names.push_back(known.name);
        }
        node.Fail("there is no command '" + text + "' in " + mScenes.File() +
                  DidYouMean(text, names));
    }
    if (IsDescription(*command)) {
        node.Fail("command " + command->Label() + " describes the device (<" +
                  command->elements.front().name + ">); it cannot run");
    }
    if (command->interactive != interactive) {
        node.Fail("command " + command->Label() +
                  (interactive ? " is no interactive-governor command; use 'do'"
                               : " is an interactive-governor command; use 'inter'"));
    }
    return *command;
}

std::vector<int> StepReader::ReadInts(const YamlNode& node, const std::string& what) const {
    std::vector<int> values;
    for (const YamlNode& item : node.AsList("a list of numbers")) {
        values.push_back(AsInt32(item, what));
    }
    return values;
}

int StepReader::ReadTag(const YamlNode& node) const {
    const std::string& text = node.AsText("the name or number of a tag");
    const std::optional<int> tag = FindTag(text, mLayout);
    if (tag) return *tag;
    const std::vector<std::string> names = TagNamesOf(mLayout);
    node.Fail(fmt::format("there is no tag '{}' with {} clusters{}; use a number or one of: {}",
                          text, mLayout == Layout::kThreeClusters ? "three" : "two",
                          DidYouMean(text, names), Join(names)));
}

std::vector<TagValue> StepReader::ReadTagValues(const YamlNode& node) const {
    if (node.kind != YamlNode::Kind::kMap || node.fields.empty()) {
        node.Fail("expected a map from tag to value, such as {big_max: 1804800}");
    }
    std::vector<TagValue> values;
    for (const auto& [key, value] : node.fields) {
        values.push_back({ReadTag(key), AsInt32(value, "the value of the tag")});
    }
    return values;
}

Request StepReader::ReadOnDemand(const YamlNode&, const YamlNode& value, Step& made) {
    if (value.kind != YamlNode::Kind::kMap || value.fields.empty()) {
        value.Fail("expected a map from command to ms, such as {app_start: 1500}; 0 ends it");
    }
    SetOnDemand arranged;
    for (const auto& [key, ms] : value.fields) {
        const SceneCommand& command = ReadCommand(key);
        const int duration = AsInt32(ms, "ms; 0 for the configured duration", 0);
        arranged.msOfCommand[command.id] = duration;
        made.text +=
            fmt::format("{}{} lasts {}", made.text.empty() ? "on demand: " : ", ", command.Label(),
                        duration ? fmt::format("{} ms", duration) : "as configured");
    }
    return arranged;
}

Request StepReader::ReadFaultStep(const YamlNode&, const YamlNode& value, Step& made) {
    ArrangeFaults arranged = ReadFaults(value, made.text);
    for (const auto& [name, fault] : arranged.nodes) {
        if (name.scalar[0] != '/') ReadTag(name);
    }
    return arranged;
}

Request StepReader::ReadHal(const YamlNode&, const YamlNode& value, Step& made) {
    return ReadHalFaults(value, made.text);
}

Request StepReader::ReadNode(const YamlNode&, const YamlNode& value, Step& made) {
    if (value.kind != YamlNode::Kind::kMap || value.fields.empty()) {
        value.Fail("expected a map from path to value; 'null' takes the node away");
    }
    ArrangeNodes arranged;
    for (const auto& [key, content] : value.fields) {
        const std::string& path = key.AsText("the path of a node");
        if (path.empty() || path[0] != '/') key.Fail("a node's path begins with '/'");
        std::optional<std::string> text;
        if (content.kind != YamlNode::Kind::kNull) text = content.AsText("the node's value");
        made.text += fmt::format("{}{} {}", made.text.empty() ? "node " : ", ", ShortNode(path),
                                 text ? "= " + *text : "taken away");
        arranged.nodes.emplace_back(path, text);
    }
    return arranged;
}

// "4-6" or "7", as in a device's profile.
Request StepReader::ReadCpus(const YamlNode&, const YamlNode& value, Step& made) {
    AsMap(value, "a map from offline or online to CPUs, such as {offline: 4-6}",
          {"offline", "online"});
    ArrangeNodes arranged;
    for (const auto& [key, cpus] : value.fields) {
        const std::string& text = cpus.AsText("CPUs");
        const size_t dash = text.find('-');
        const auto first = ParseNumber(text.substr(0, dash));
        const auto last = dash == std::string::npos ? first : ParseNumber(text.substr(dash + 1));
        if (!first || !last || *first < 0 || *last < *first || *last > 63) {
            cpus.Fail("expected a CPU or a range of them, such as 4-6, not '" + text + "'");
        }
        made.text += fmt::format("{}cpus {} {}", made.text.empty() ? "" : ", ", text, key.scalar);
        for (int64_t cpu = *first; cpu <= *last; ++cpu) {
            arranged.nodes.emplace_back(fmt::format("/sys/devices/system/cpu/cpu{}/online", cpu),
                                        key.scalar == "online" ? "1" : "0");
        }
    }
    return arranged;
}

Request StepReader::ReadProperty(const YamlNode&, const YamlNode& value, Step& made) {
    ArrangeProperties arranged{ReadProperties(value)};
    for (const auto& [name, text] : arranged.properties) {
        made.text += (made.text.empty() ? "property " : ", ") + name + " = " + text;
    }
    return arranged;
}

Request StepReader::ReadWait(const YamlNode& step, const YamlNode& value, Step& made) {
    if (step.Find("at") || step.Find("after")) {
        step.Fail("'wait' is a time of its own; remove 'at' or 'after'");
    }
    made.ms = value.AsInt("ms", 0, kLongestMs);
    PassTime(step, made);
    return Wait{};
}

Request StepReader::ReadRepeat(const YamlNode& step, const YamlNode& value, Step& made) {
    Repeat repeat;
    repeat.count = value.AsInt("how often", 0, kMostRounds);
    const int64_t start = mNowMs;
    repeat.steps = ReadList(step.Get("steps"), true);
    const int64_t roundMs = mNowMs - start;
    if (roundMs > 0 && repeat.count > (kLongestMs - start) / roundMs) {
        value.Fail("the scenario would last longer than ten years");
    }
    mNowMs = start + roundMs * repeat.count;
    made.text = fmt::format("repeat {} times", repeat.count);
    return repeat;
}

}  // namespace lab

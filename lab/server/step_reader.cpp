#include "lab/server/step_reader.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/names/node_names.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {

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

int ReadInt32(const YamlNode& node, const std::string& what, int64_t low, int64_t high) {
    return static_cast<int>(node.AsInt(what, low, high));
}

void ExpectMap(const YamlNode& node, const std::string& what,
               const std::vector<std::string>& fields) {
    if (node.kind != YamlNode::Kind::kMap) node.Fail("expected " + what);
    node.ExpectFields(what, fields);
}

const SceneCommand& StepInput::ReadCommand(const YamlNode& node, bool interactive) const {
    const std::string& text = node.AsText("the name or id of a command");
    const SceneCommand* command = scenes.Find(text);
    if (const std::optional<int64_t> id = ParseNumber(text); !command && id) {
        if (*id >= 0 && *id <= INT32_MAX) command = scenes.Find(static_cast<int>(*id));
    }
    if (!command) {
        std::vector<std::string> names;
        for (const SceneCommand& known : scenes.Commands()) {
            if (!known.name.empty()) names.push_back(known.name);
        }
        node.Fail("there is no command '" + text + "' in " + scenes.File() +
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

int StepInput::ReadTag(const YamlNode& node) const {
    const std::string& text = node.AsText("the name or number of a tag");
    const std::optional<int> tag = FindTag(text, layout);
    if (tag) return *tag;
    const std::vector<std::string> names = TagNamesOf(layout);
    node.Fail(fmt::format("there is no tag '{}' with {} clusters{}; use a number or one of: {}",
                          text, layout == Layout::kThreeClusters ? "three" : "two",
                          DidYouMean(text, names), Join(names)));
}

std::vector<TagValue> StepInput::ReadTagValues(const YamlNode& node) const {
    std::vector<TagValue> values;
    for (const auto& [tag, number] :
         node.AsFilledMap("a map from tag to value, such as {big_max: 1804800}")) {
        values.push_back({ReadTag(tag), ReadInt32(number, "the value of the tag")});
    }
    return values;
}

// Reads list by list, and knows when the step being read happens.
class StepReader {
  public:
    explicit StepReader(const SceneFile& scenes)
        : mScenes(scenes), mLayout(scenes.ClusterLayout()) {}

    std::vector<Step> ReadList(const YamlNode& list, bool repeated) {
        std::vector<Step> steps;
        for (const YamlNode& node : list.AsList("steps")) {
            steps.push_back(ReadStep(node, repeated));
        }
        return steps;
    }

    Request ReadWait(StepInput& in) {
        if (in.step.Find("at") || in.step.Find("after")) {
            in.step.Fail("'wait' is a time of its own; remove 'at' or 'after'");
        }
        in.made.ms = in.value.AsInt("ms", 0, kLongestMs);
        PassTime(in.step, in.made);
        return Wait{};
    }

    Request ReadRepeat(StepInput& in) {
        Repeat repeat;
        repeat.count = in.value.AsInt("how often", 0, kMostRounds);
        const int64_t start = mNowMs;
        repeat.steps = ReadList(in.step.Get("steps"), true);
        const int64_t roundMs = mNowMs - start;
        if (roundMs > 0 && repeat.count > (kLongestMs - start) / roundMs) {
            in.value.Fail("the scenario would last longer than ten years");
        }
        mNowMs = start + roundMs * repeat.count;
        in.made.text = fmt::format("repeat {} times", repeat.count);
        return repeat;
    }

  private:
    Step ReadStep(const YamlNode& node, bool repeated);
    Layout ReadDevice(const YamlNode& node, Step& made) const;
    void ReadTime(const YamlNode& node, bool repeated, Step& made);

    void PassTime(const YamlNode& node, const Step& made) {
        mNowMs = made.absolute ? made.ms : mNowMs + made.ms;
        if (mNowMs > kLongestMs) node.Fail("the scenario lasts longer than ten years by here");
    }

    const SceneFile& mScenes;
    const Layout mLayout;
    int64_t mNowMs = 0;  // when the step being read happens, counted within a repeat's first round
};

namespace {

// Adds what a step does beside what it does already.
void Say(Step& made, const char* first, const std::string& text) {
    made.text += (made.text.empty() ? first : ", ") + text;
}

Request ReadOnDemand(StepInput& in) {
    SetOnDemand arranged;
    for (const auto& [key, ms] :
         in.value.AsFilledMap("a map from command to ms, such as {app_start: 1500}; 0 ends it")) {
        const SceneCommand& command = in.ReadCommand(key);
        const int duration = ReadInt32(ms, "ms; 0 for the configured duration", 0);
        arranged.msOfCommand[command.id] = duration;
        Say(in.made, "on demand: ",
            command.Label() + " lasts " +
                (duration ? fmt::format("{} ms", duration) : "as configured"));
    }
    return arranged;
}

Request ReadFaultStep(StepInput& in) {
    ArrangeFaults arranged = ReadFaults(in.value, in.made.text);
    for (const auto& [name, fault] : arranged.nodes) {
        if (name.scalar[0] != '/') in.ReadTag(name);
    }
    return arranged;
}

Request ReadHal(StepInput& in) {
    ArrangeFaults arranged;
    arranged.hal = ReadHalFault(in.value, in.made.text);
    return arranged;
}

Request ReadNode(StepInput& in) {
    ArrangeNodes arranged;
    for (const auto& [key, content] :
         in.value.AsFilledMap("a map from path to value; 'null' takes the node away")) {
        const std::string& path = key.AsText("the path of a node");
        if (path.empty() || path[0] != '/') key.Fail("a node's path begins with '/'");
        std::optional<std::string> text;
        if (content.kind != YamlNode::Kind::kNull) text = content.AsText("the node's value");
        Say(in.made, "node ", ShortNode(path) + (text ? " = " + *text : " taken away"));
        arranged.nodes.emplace_back(path, text);
    }
    return arranged;
}

// "4-6" or "7", as in a device's profile.
Request ReadCpus(StepInput& in) {
    ExpectMap(in.value, "a map from offline or online to CPUs, such as {offline: 4-6}",
              {"offline", "online"});
    ArrangeNodes arranged;
    for (const auto& [key, cpus] : in.value.fields) {
        const std::string& text = cpus.AsText("CPUs");
        const size_t dash = text.find('-');
        const auto first = ParseNumber(text.substr(0, dash));
        const auto last = dash == std::string::npos ? first : ParseNumber(text.substr(dash + 1));
        if (!first || !last || *first < 0 || *last < *first || *last > 63) {
            cpus.Fail("expected a CPU or a range of them, such as 4-6, not '" + text + "'");
        }
        Say(in.made, "", fmt::format("cpus {} {}", text, key.scalar));
        for (int64_t cpu = *first; cpu <= *last; ++cpu) {
            arranged.nodes.emplace_back(fmt::format("/sys/devices/system/cpu/cpu{}/online", cpu),
                                        key.scalar == "online" ? "1" : "0");
        }
    }
    return arranged;
}

Request ReadProperty(StepInput& in) {
    ArrangeProperties arranged{ReadProperties(in.value)};
    for (const auto& [name, text] : arranged.properties) {
        Say(in.made, "property ", name + " = " + text);
    }
    return arranged;
}

const std::vector<StepKind>& Kinds() {
    static const std::vector<StepKind> kinds = [] {
        std::vector<StepKind> all = RequestKinds();
        const StepKind others[] = {
            {"on_demand", {}, ReadOnDemand},
            {"faults", {}, ReadFaultStep},
            {"hal", {}, ReadHal},
            {"node", {}, ReadNode},
            {"cpus", {}, ReadCpus},
            {"property", {}, ReadProperty},
            {"wait", {}, [](StepInput& in) { return in.reader.ReadWait(in); }},
            {"expect", {}, ReadExpect},
            {"repeat", {"steps"}, [](StepInput& in) { return in.reader.ReadRepeat(in); }},
        };
        all.insert(all.end(), std::begin(others), std::end(others));
        return all;
    }();
    return kinds;
}

const StepKind* FindKind(const std::string& field) {
    const auto found = std::find_if(Kinds().begin(), Kinds().end(),
                                    [&](const StepKind& kind) { return kind.field == field; });
    return found == Kinds().end() ? nullptr : &*found;
}

[[noreturn]] void FailWithoutKind(const YamlNode& node) {
    std::vector<std::string> names;
    for (const StepKind& kind : Kinds()) names.emplace_back(kind.field);
    if (node.kind != YamlNode::Kind::kMap) {
        node.Fail("a step is a map with one of: " + Join(names));
    }
    for (const auto& [key, value] : node.fields) {
        if (key.scalar == "at" || key.scalar == "after" || key.scalar == "device") continue;
        key.Fail("there is no step '" + key.scalar + "'" + DidYouMean(key.scalar, names) +
                 "; a step has one of: " + Join(names));
    }
    node.Fail("this step does nothing; give it one of: " + Join(names));
}

}  // namespace

Step StepReader::ReadStep(const YamlNode& node, bool repeated) {
    const StepKind* kind = nullptr;
    for (const auto& [key, value] : node.fields) {
        const StepKind* other = FindKind(key.scalar);
        if (kind && other) {
            key.Fail(fmt::format("this step has '{}' and '{}'; make two steps of it", kind->field,
                                 other->field));
        }
        if (other) kind = other;
    }
    if (!kind) FailWithoutKind(node);
    std::vector<std::string> allowed = {"at", "after", "returns", "device", kind->field};
    allowed.insert(allowed.end(), kind->beside.begin(), kind->beside.end());
    node.ExpectFields(fmt::format("a step '{}'", kind->field), allowed);

    Step made;
    made.line = node.line;
    ReadTime(node, repeated, made);
    const Layout layout = ReadDevice(node, made);
    StepInput in{*this, mScenes, layout, *kind, node, node.Get(kind->field), made};
    made.request = kind->read(in);
    if (const YamlNode* returns = node.Find("returns")) {
        made.returns = ReadInt32(*returns, "the result that the request must have");
    }
    return made;
}

// A step of one device names the tags of that device's clusters.
Layout StepReader::ReadDevice(const YamlNode& node, Step& made) const {
    const YamlNode* device = node.Find("device");
    if (!device) return mLayout;
    if (node.Find("repeat")) device->Fail("'repeat' is for every device; name it in its steps");
    made.device = device->AsText("the name of a device");
    const std::vector<std::string> names = DeviceProfileNames();
    if (std::find(names.begin(), names.end(), made.device) == names.end()) {
        device->Fail("there is no shipped device '" + made.device + "'" +
                     DidYouMean(made.device, names) + "; use one of: " + Join(names));
    }
    return LayoutOf(LoadDeviceProfile(made.device));
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
    PassTime(node, made);
}

std::vector<Step> ReadScenarioSteps(const YamlNode& root, const SceneFile& scenes) {
    return StepReader(scenes).ReadList(root.Get("steps"), false);
}

}  // namespace lab

#include "lab/server/fault_step.h"

#include <fmt/format.h>

#include <array>

#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/phone/phone.h"
#include "lab/server/step_reader.h"

namespace lab {
namespace {

constexpr int kSlowestMs = 60'000;
constexpr int kMostRefusals = 1'000'000;

constexpr auto kNodeWords = std::to_array<Word<NodeFault::Kind>>({
    {"missing", NodeFault::Kind::kMissing},
    {"unreadable", NodeFault::Kind::kUnreadable},
    {"unwritable", NodeFault::Kind::kUnwritable},
    {"short", NodeFault::Kind::kShort},
    {"refusing", NodeFault::Kind::kRefusing},
});
constexpr auto kHalWords = std::to_array<Word<HalLibrary>>({
    {"absent", HalLibrary::kAbsent},
    {"without_perf_lock_acq", HalLibrary::kWithoutAcquire},
    {"without_perf_lock_rel", HalLibrary::kWithoutRelease},
});

template <typename Words>
auto FindWord(const Words& words, const YamlNode& node, const std::string& what) {
    std::vector<std::string> known = {"none"};
    const std::string& text = node.AsText(what);
    for (const auto& row : words) {
        if (row.word == text) return row.meaning;
        known.emplace_back(row.word);
    }
    node.Fail(fmt::format("there is no such fault as '{}'{}; expected {}: {}", text,
                          DidYouMean(text, known), what, Join(known)));
}

bool IsNone(const YamlNode& node) {
    return node.kind == YamlNode::Kind::kScalar && node.scalar == "none";
}

// {slow_ms: 40}
int ReadSlow(const YamlNode& node) {
    return ReadInt32(node.Get("slow_ms"), "ms that it takes", 1, kSlowestMs);
}

void Say(std::string& text, const std::string& fault) {
    text += (text.empty() ? "faults: " : ", ") + fault;
}

// True for what lifts a fault, with that in words.
bool IsLifted(const YamlNode& node, std::string& text, const std::string& words) {
    if (IsNone(node)) Say(text, words);
    return IsNone(node);
}

std::optional<NodeFault> ReadNodeFault(const YamlNode& node) {
    if (IsNone(node)) return std::nullopt;
    if (node.kind == YamlNode::Kind::kMap) {
        node.ExpectFields("a slow node: {slow_ms: 40}", {"slow_ms"});
        return NodeFault{NodeFault::Kind::kSlow, ReadSlow(node)};
    }
    return NodeFault{FindWord(kNodeWords, node, "a node's fault, or {slow_ms: 40}"), 0};
}

void ReadNodes(const YamlNode& node, ArrangeFaults& faults, std::string& text) {
    faults.liftsNodes = IsLifted(node, text, "all nodes sound");
    if (faults.liftsNodes) return;
    for (const auto& [key, value] :
         node.AsFilledMap("a map from path or tag to fault, such as {big_max: unwritable}")) {
        const std::string& name = key.AsText("the path of a node, or a tag");
        if (name.empty()) key.Fail("expected the path of a node, or a tag");
        const std::optional<NodeFault> fault = ReadNodeFault(value);
        faults.nodes.emplace_back(key, fault);
        const std::string what = !fault ? "sound"
                                 : fault->kind == NodeFault::Kind::kSlow
                                     ? fmt::format("takes {} ms", fault->slowMs)
                                     : value.scalar;
        Say(text, (name[0] == '/' ? ShortNode(name) : name) + " " + what);
    }
}

TimerFault ReadTimerFault(const YamlNode& node, std::string& text) {
    TimerFault fault;
    if (IsLifted(node, text, "timers sound")) return fault;
    for (const YamlNode& word : node.OneOrMore()) {
        const std::string& name = word.AsText("timer_create, timer_settime, or a list of both");
        if (name == "timer_create") {
            fault.failsToCreate = true;
        } else if (name == "timer_settime") {
            fault.failsToSet = true;
        } else {
            word.Fail("'" + name +
                      "' cannot fail; expected none, timer_create, timer_settime or a list of "
                      "both");
        }
        Say(text, name + " fails");
    }
    return fault;
}

std::vector<std::string> ReadMissingProperties(const YamlNode& node, std::string& text) {
    std::vector<std::string> names;
    if (IsLifted(node, text, "all properties there")) return names;
    for (const YamlNode& item : node.AsList("a list of properties, or none")) {
        names.push_back(item.AsText("the name of a property"));
        Say(text, "property " + names.back() + " missing");
    }
    return names;
}

// The nodes that `name` stands for: its own path, or those of a tag.
std::vector<std::string> NodesOf(const YamlNode& name, Layout layout, const DeviceProfile& device) {
    if (name.scalar[0] == '/') return {name.scalar};
    const std::optional<int> tag = FindTag(name.scalar, layout);
    if (!tag) {
        name.Fail("'" + name.scalar + "' is neither a path nor a tag of this device" +
                  DidYouMean(name.scalar, TagNamesOf(layout)));
    }
    const std::vector<std::string> paths = TagNodes(*tag, device);
    if (paths.empty()) name.Fail("the tag '" + name.scalar + "' has no node");
    return paths;
}

}  // namespace

ArrangeFaults ReadFaults(const YamlNode& node, std::string& text) {
    if (IsNone(node)) {
        text = "faults: none any more";
        return {true, {}, HalFault(), TimerFault(), std::vector<std::string>()};
    }
    node.AsFilledMap(
        "faults such as {hal: absent}, or none; the parts are nodes, hal, timer, properties");
    ArrangeFaults faults;
    node.ExpectFields("faults", {"nodes", "hal", "timer", "properties"});
    if (const YamlNode* nodes = node.Find("nodes")) ReadNodes(*nodes, faults, text);
    if (const YamlNode* hal = node.Find("hal")) faults.hal = ReadHalFault(*hal, text);
    if (const YamlNode* timer = node.Find("timer")) faults.timer = ReadTimerFault(*timer, text);
    if (const YamlNode* properties = node.Find("properties")) {
        faults.properties = ReadMissingProperties(*properties, text);
    }
    return faults;
}

HalFault ReadHalFault(const YamlNode& node, std::string& text) {
    HalFault fault;
    if (IsLifted(node, text, "the HAL sound")) return fault;
    if (node.kind != YamlNode::Kind::kMap) {
        fault.library = FindWord(kHalWords, node, "the HAL's fault, {refuse: 2} or {slow_ms: 40}");
        Say(text, "the HAL " + node.scalar);
        return fault;
    }
    node.ExpectFields("the HAL's fault: {refuse: 2, result: -1} or {slow_ms: 40}",
                      {"refuse", "result", "slow_ms"});
    if (node.Find("slow_ms")) {
        fault.slowMs = ReadSlow(node);
        Say(text, fmt::format("every call of the HAL takes {} ms", fault.slowMs));
    }
    if (const YamlNode* refuse = node.Find("refuse")) {
        const bool isAlways = refuse->kind == YamlNode::Kind::kScalar && refuse->scalar == "always";
        fault.refusals = isAlways ? kRefuseAlways
                                  : ReadInt32(*refuse, "how many locks to refuse, or 'always'", 0,
                                              kMostRefusals);
        if (const YamlNode* result = node.Find("result")) {
            fault.result = ReadInt32(*result, "0 or -1", -1, 0);
        }
        Say(text, fmt::format("the HAL refuses {} with {}",
                              isAlways ? "every lock" : fmt::format("{} locks", fault.refusals),
                              fault.result));
    } else if (const YamlNode* result = node.Find("result")) {
        result->Fail("'result' is what a refused lock gets; say how many: 'refuse'");
    }
    if (node.fields.empty()) node.Fail("expected {refuse: 2, result: -1} or {slow_ms: 40}");
    return fault;
}

void Inject(const ArrangeFaults& faults, Layout layout, const DeviceProfile& device, Phone& phone) {
    Faults& target = phone.GetFaults();
    if (faults.liftsNodes) target.LiftNodes();
    for (const auto& [name, fault] : faults.nodes) {
        for (const std::string& path : NodesOf(name, layout, device)) target.SetNode(path, fault);
    }
    if (faults.hal) {
        phone.SetHalLibrary(faults.hal->library);
        phone.Hal().RefuseNext(faults.hal->refusals, faults.hal->result);
        target.SetHalDelay(faults.hal->slowMs);
    }
    if (faults.timer) target.SetTimer(faults.timer->failsToCreate, faults.timer->failsToSet);
    if (faults.properties) {
        target.HideProperties({faults.properties->begin(), faults.properties->end()});
    }
}

}  // namespace lab

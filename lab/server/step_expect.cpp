// The step of a scenario that says what must be so.
#include <fmt/format.h>

#include <array>

#include "lab/phone/events.h"
#include "lab/scenes/scene_meaning.h"
#include "lab/server/step_reader.h"

namespace lab {
namespace {

const std::vector<std::string> kFields = {"locks", "result", "performance", "thermal", "tags",
                                          "nodes", "lock",   "no_lock",     "log",     "no_log"};

constexpr auto kPriorities = std::to_array<Word<int>>({
    {"verbose", 2},
    {"debug", 3},
    {"info", 4},
    {"warn", 5},
    {"error", 6},
});

int ReadPriority(const YamlNode& node) {
    const std::string& text = node.AsText("a priority");
    for (const Word<int>& row : kPriorities) {
        if (text == row.word || text == std::string(1, PriorityLetter(row.meaning))) {
            return row.meaning;
        }
    }
    node.Fail("there is no priority '" + text + "'; use error, warn, info, debug or verbose");
}

// A text alone is a part of the line.
ExpectedLog ReadExpectedLog(const YamlNode& node, bool isLogged) {
    ExpectedLog log;
    log.isLogged = isLogged;
    if (node.kind == YamlNode::Kind::kScalar) {
        log.part = node.scalar;
        return log;
    }
    node.ExpectFields("a log line: {priority: error, contains: \"failed\"}",
                      {"priority", "text", "contains"});
    if (const YamlNode* priority = node.Find("priority")) log.priority = ReadPriority(*priority);
    if (const YamlNode* text = node.Find("text")) log.text = text->AsText("the whole line");
    if (const YamlNode* part = node.Find("contains")) log.part = part->AsText("part of the line");
    if (!log.priority && !log.text && !log.part) {
        node.Fail("say something of the line: its priority, text or what it contains");
    }
    return log;
}

// A resource by its key in scene files, the name of its tag or its opcode.
int ReadResource(const YamlNode& node, Layout layout) {
    const std::string& text = node.AsText("the name of a resource");
    if (const std::optional<int> opcode = FindKeyOpcode(text)) return *opcode;
    const std::optional<int64_t> number = ParseNumber(text);
    if (number && *number > 0 && *number <= INT32_MAX) return static_cast<int>(*number);
    if (const std::optional<int> tag = FindTag(text, layout)) {
        if (const std::optional<int> opcode = FindTagOpcode(*tag, layout)) return *opcode;
    }
    node.Fail(
        "there is no resource '" + text +
        "'; use a scene file's key (big_cpu0_min_freq), a tag (big_min) or an opcode (0x...)");
}

ExpectedLock ReadExpectedLock(const StepInput& in, const YamlNode& node, bool isHeld) {
    ExpectMap(node, "a lock: {command: touch, resource: big_cpu0_min_freq, value: 1113}",
              {"command", "client", "resource", "value"});
    ExpectedLock lock;
    lock.isHeld = isHeld;
    lock.text = "a lock";
    if (const YamlNode* resource = node.Find("resource")) {
        lock.opcode = ReadResource(*resource, in.layout);
        lock.text += " on " + resource->scalar;
    }
    if (const YamlNode* value = node.Find("value")) {
        if (!lock.opcode) value->Fail("a value needs the resource that has it");
        lock.value = ReadInt32(*value, "the value, as the timeline shows it");
        lock.text += fmt::format(" = {}", *lock.value);
    }
    if (const YamlNode* command = node.Find("command")) {
        const SceneCommand& found = in.ReadCommand(*command);
        lock.cmdId = found.id;
        lock.text += " by " + found.Label();
    }
    if (const YamlNode* client = node.Find("client")) {
        if (lock.cmdId) client->Fail("a lock is a command's or a client's, not both");
        lock.clientId = ReadClient(*client);
        lock.text += " by " + ClientLabel(*lock.clientId);
    }
    return lock;
}

}  // namespace

Request ReadExpect(StepInput& in) {
    const YamlNode& value = in.value;
    ExpectMap(value, "an expectation", kFields);
    if (value.fields.empty()) value.Fail("expect something: " + Join(kFields));
    in.made.text = "expect";
    Expect all;
    const auto readNumber = [&](const char* field, ExpectedNumber::What what, const char* meaning,
                                int low) {
        const YamlNode* node = value.Find(field);
        if (!node) return;
        all.push_back({node->line, ExpectedNumber{what, ReadInt32(*node, meaning, low)}});
    };
    readNumber("locks", ExpectedNumber::What::kLocks, "how many locks are held", 0);
    readNumber("result", ExpectedNumber::What::kResult, "the result of the request before",
               INT32_MIN);
    readNumber("performance", ExpectedNumber::What::kPerformance, "0 or 1", 0);
    readNumber("thermal", ExpectedNumber::What::kThermal, "a thermal level, -1 to 4", -1);
    if (const YamlNode* nodes = value.Find("nodes")) {
        if (nodes->kind != YamlNode::Kind::kMap) nodes->Fail("expected a map from path to value");
        for (const auto& [path, content] : nodes->fields) {
            all.push_back({path.line, ExpectedNode{path.AsText("the path of a node"),
                                                   content.AsText("the node's value")}});
        }
    }
    if (const YamlNode* tags = value.Find("tags")) {
        const std::vector<TagValue> values = in.ReadTagValues(*tags);
        for (size_t i = 0; i < values.size(); ++i) {
            all.push_back({tags->fields[i].key.line, values[i]});
        }
    }
    const auto readEach = [&](const char* field, const auto& read) {
        const YamlNode* nodes = value.Find(field);
        if (!nodes) return;
        for (const YamlNode& node : nodes->OneOrMore()) all.push_back({node.line, read(node)});
    };
    readEach("lock", [&](const YamlNode& node) { return ReadExpectedLock(in, node, true); });
    readEach("no_lock", [&](const YamlNode& node) { return ReadExpectedLock(in, node, false); });
    readEach("log", [](const YamlNode& node) { return ReadExpectedLog(node, true); });
    readEach("no_log", [](const YamlNode& node) { return ReadExpectedLog(node, false); });
    return all;
}

}  // namespace lab

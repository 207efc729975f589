#include "lab/server/scenario.h"

#include <array>

#include "base/ids.h"
#include "lab/server/step_reader.h"

namespace lab {
namespace {

// The long-lived requesters of limits, with the other names under which people know them.
constexpr auto kClientNames = std::to_array<Word<int>>({
    {"power", tarquel::kClientPower},
    {"thermal", tarquel::kClientTemp},
    {"temp", tarquel::kClientTemp},
    {"eapa", tarquel::kClientEapa},
    {"camera", tarquel::kClientCamera},
});

}  // namespace

std::string ClientLabel(int clientId) {
    for (const Word<int>& row : kClientNames) {
        if (row.meaning == clientId) return std::string(row.word);
    }
    return "client " + std::to_string(clientId);
}

int ReadClient(const YamlNode& node) {
    const std::string& text = node.AsText("a client: power, thermal, eapa, camera or a number");
    for (const Word<int>& row : kClientNames) {
        if (row.word == text) return row.meaning;
    }
    const std::optional<int64_t> number = ParseNumber(text);
    if (!number || *number < INT32_MIN || *number > INT32_MAX) {
        node.Fail("there is no client '" + text +
                  "'; use power, thermal (or temp), eapa, camera or a number");
    }
    return static_cast<int>(*number);
}

ScenarioHead ReadScenarioHead(const YamlNode& root) {
    root.ExpectFields("a scenario", {"title", "device", "scenes", "properties", "state", "debug",
                                     "faults", "steps"});
    ScenarioHead head;
    head.file = root.File();
    if (const YamlNode* node = root.Find("title")) head.title = node->AsText("a title");
    if (const YamlNode* node = root.Find("device")) {
        head.device = node->AsText("the name or file of a device");
        head.deviceNode = *node;
    }
    if (const YamlNode* node = root.Find("scenes")) {
        head.scenes = node->AsText("a scene file");
        head.scenesNode = *node;
    }
    if (const YamlNode* node = root.Find("properties")) head.properties = ReadProperties(*node);
    if (const YamlNode* node = root.Find("state")) {
        head.state = ReadInt32(*node, "state bits");
    }
    if (const YamlNode* node = root.Find("debug")) head.debug = node->AsBool("on or off");
    if (const YamlNode* node = root.Find("faults")) {
        head.faults = ReadFaults(*node, head.faultsText);
    }
    root.Get("steps").AsList("steps");
    return head;
}

}  // namespace lab

// A scenario: what happens to a phone and what its policy server is asked, at given times.
// docs/scenarios.md describes the form.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "lab/book/request_facts.h"
#include "lab/names/tag_names.h"
#include "lab/scenes/scene_file.h"
#include "lab/server/fault_step.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

// More is a slip: ten years of a scenario, and what one `repeat` may ask for.
inline constexpr int64_t kLongestMs = 10LL * 366 * 24 * 3600 * 1000;
inline constexpr int64_t kMostRounds = 100'000'000;

// The requests, each as the step of a scenario that makes it.
struct DoCommand {
    int cmdId = 0;
    std::vector<int> payload;  // {0}: an event begins; {-1}: it ends
    std::string message;       // of the process that asks, "...|targetPid=1234|..."
};
struct DoInteractive {
    int cmdId = 0;
    std::vector<int> payload;
};
struct SetLimits {
    int clientId = 0;
    std::vector<TagValue> tags;  // a group's first one is its marker with the duration
};
struct GetValues {
    std::vector<int> tags;
};
struct GetStatus {};
struct DumpLimits {};
struct SetStateBits {
    int state = 0;
};
struct SetDebugSwitch {
    bool on = false;
};
struct CountBoost {
    int cmdId = 0;
};
struct AskBoost {
    int cmdId = 0;
};
struct GetCeilings {  // the frequency ceilings of a command
    int cmdId = 0;
    bool release = false;
};
struct SetSchedLevel {
    int level = 0;
    std::vector<TagValue> tags;
};
struct ProbeAffinity {
    int mask = 0;
    int pid = 0;
};
struct GetChipType {
    int cmdId = 0;
};

// What befalls the phone, without a request.
struct SetOnDemand {
    std::map<int, int> msOfCommand;
};
struct ArrangeNodes {
    std::vector<std::pair<std::string, std::optional<std::string>>> nodes;  // none: taken away
};
struct ArrangeProperties {
    std::map<std::string, std::string> properties;
};
struct Wait {};

// What must be so by now.
struct ExpectedNumber {
    enum class What { kLocks, kResult, kPerformance, kThermal } what;
    int value = 0;
};
struct ExpectedNode {
    std::string path;
    std::string value;
};
// A lock that is held, or is not; what is not given fits any.
struct ExpectedLock {
    bool isHeld = true;
    std::optional<int> cmdId;  // of the request that took or last renewed it
    std::optional<int> clientId;
    std::optional<int> opcode;
    std::optional<int> value;  // of the opcode, as the lock has it
    std::string text;          // in words: "big_cpu0_min_freq = 2112 by game_fight (9220)"
};
// A line logged, or not, since the last expectation of the log or since the start.
struct ExpectedLog {
    bool isLogged = true;
    std::optional<int> priority;      // Android's
    std::optional<std::string> text;  // the whole line without its newline
    std::optional<std::string> part;
};
struct Expected {
    int line = 0;  // of the scenario
    std::variant<ExpectedNumber, ExpectedNode, TagValue, ExpectedLock, ExpectedLog> what;
};
using Expect = std::vector<Expected>;

struct Step;
struct Repeat {
    int64_t count = 0;
    std::vector<Step> steps;
};

using Request = std::variant<DoCommand, DoInteractive, SetLimits, GetValues, GetStatus, DumpLimits,
                             SetStateBits, SetDebugSwitch, CountBoost, AskBoost, GetCeilings,
                             SetSchedLevel, ProbeAffinity, GetChipType, SetOnDemand, ArrangeFaults,
                             ArrangeNodes, ArrangeProperties, Wait, Expect, Repeat>;

struct Step {
    int line = 0;
    bool absolute = false;  // `ms` counts from the start, else from the previous step
    int64_t ms = 0;
    std::string text;  // the request in words, for reports
    Request request;
    std::optional<int> returns;  // the result that it must have
    std::string device;          // empty: any; else the one on which the step counts
};

// What a scenario says before its steps.
struct ScenarioHead {
    std::string file;
    std::string title;                  // empty when it has none
    std::string device = kUsualDevice;  // name or file of a profile
    std::optional<std::string> scenes;  // none: the device's
    YamlNode deviceNode;                // where the scenario names it, or null
    YamlNode scenesNode;
    std::map<std::string, std::string> properties;  // beside the profile's
    int state = 0;
    bool debug = false;
    ArrangeFaults faults;    // in force before the plug-in starts
    std::string faultsText;  // in words; empty for none
};

// Reads the fields before the steps and refuses unknown ones. Throws InputError.
ScenarioHead ReadScenarioHead(const YamlNode& root);

// Reads the steps. Names of commands are those of `scenes`, names of tags those of its layout.
// Throws InputError that names the place, the wrong value and what is allowed.
std::vector<Step> ReadScenarioSteps(const YamlNode& root, const SceneFile& scenes);

// "thermal" for 2; "client 7" for a number without a name.
std::string ClientLabel(int clientId);

}  // namespace lab

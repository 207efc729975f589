// What the commands of a scene file do on a device: what the plug-in makes of them, and what its
// locks and writes make of the nodes of a phone that nobody else limits.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/names/paint.h"
#include "lab/names/table.h"
#include "lab/phone/device_profile.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {

// One tunable of an element, as the plug-in made it.
struct ExplainedPair {
    struct Node {
        std::string path;
        bool exists = false;
        std::string reads;  // while the command runs
    };

    std::string key;                 // as the file writes it
    std::string code;                // "0x40800000", "tag 7"; empty for the interactive governor
    std::string value;               // what the lock or the limit asks, with its unit
    std::vector<Node> nodes;         // none: the lab knows no node for it
    std::vector<std::string> notes;  // rounding, clamping, a lock without room
};

// What a breakthrough under one thermal level does.
struct ThermalLift {
    struct Ceiling {
        std::string name;  // "big_cpu0_scaling_max_freq"
        std::string value;
    };

    int thermalLevel = 0;
    std::optional<int> frequencyLevel;  // none: no boost frequencies
    int forMs = 0;
    std::vector<Ceiling> ceilings;   // those that its lock gets in addition
    std::vector<Ceiling> rewritten;  // the element's own that change with them
};

struct ExplainedElement {
    const SceneElement* source = nullptr;
    int durationMs = 0;  // 0: until released; negative: never runs
    int offDelayTime = 0;
    int offDelayPerc = 0;
    int boostLimitLevel = -1;          // the highest thermal level under which it breaks through
    std::vector<ExplainedPair> pairs;  // in the order in which the lock has them
    std::vector<std::string> dropped;  // keys that do not count, and why
    std::vector<ThermalLift> lifts;    // by ascending thermal level
};

struct ExplainedCommand {
    using Kind = CommandMeaning::Kind;

    const SceneCommand* source = nullptr;
    Kind kind = Kind::kAction;
    bool isAccepted = true;
    std::vector<std::string> problems;  // the plug-in's refusals, where they stand
    std::optional<int> countLimit;      // breakthroughs in `periodMs`; the file's own words
    std::optional<int> periodMs;
    std::vector<ExplainedElement> elements;
    std::vector<std::string> said;  // the plug-in's error lines while the command ran
};

// Points into the scene file.
struct Explanation {
    std::string file;
    std::string device;
    bool isAssumed = false;             // nobody named the device, and the file does not tell it
    std::vector<std::string> problems;  // of the file as a whole: its clusters
    std::vector<ExplainedCommand> commands;
};

// Explains the command called `command` (a name or an id) in full, or with "" every command without
// running it: nodes and thermal lifts are empty then.
//   device   a shipped name or a file; empty: the one that the scene file is named after, or the
//            first whose clusters it describes
//   library  the plug-in; empty: the one beside the program
// Throws InputError for a file that cannot be used, std::runtime_error for an unknown command.
Explanation ExplainScenes(const SceneFile& scenes, const std::string& command,
                          const std::string& device, const std::string& library);

// Of a command what can be told without running it: not its nodes, its thermal lifts, and what the
// plug-in says.
ExplainedCommand TranslateCommand(const SceneFile& scenes, const CommandMeaning& meaning);

// A command in full, or the table of all.
void PrintCommand(std::ostream& out, const Explanation& explanation, bool wholePaths,
                  const Paint& paint);
void PrintSummary(std::ostream& out, const Explanation& explanation, const Paint& paint);

// As JSON, with everything that there is to tell.
nlohmann::json ExplanationJson(const Explanation& explanation);

}  // namespace lab

// Reads the steps of a scenario, a file for each family of them. Every mistake is an InputError
// that names its place, the wrong value and what is allowed.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lab/names/text.h"
#include "lab/server/scenario.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

// A word of the vocabulary and what it stands for.
template <typename Meaning>
struct Word {
    std::string_view word;
    Meaning meaning;
};

class StepReader;
struct StepInput;

// A kind of step.
struct StepKind {
    const char* field;                // that makes it
    std::vector<std::string> beside;  // fields that may stand beside it
    Request (*read)(StepInput& in);   // says the step in words too
    const char* words = "";           // for those that have the same always; {}: the command
};

// A step that is being read. The names of commands are those of `scenes`, the names of tags those
// of `layout`.
struct StepInput {
    StepReader& reader;
    const SceneFile& scenes;
    const Layout layout;
    const StepKind& kind;
    const YamlNode& step;
    const YamlNode& value;  // of the field that makes it
    Step& made;

    const SceneCommand& ReadCommand(const YamlNode& node, bool interactive = false) const;
    int ReadTag(const YamlNode& node) const;
    std::vector<TagValue> ReadTagValues(const YamlNode& node) const;
};

// The kinds that are requests of the policy server.
std::vector<StepKind> RequestKinds();

// The step that says what must be so.
Request ReadExpect(StepInput& in);

// The number of a client given by name or number.
int ReadClient(const YamlNode& node);

// A map from property name to value.
std::map<std::string, std::string> ReadProperties(const YamlNode& node);

int ReadInt32(const YamlNode& node, const std::string& what, int64_t low = INT32_MIN,
              int64_t high = INT32_MAX);

// Refuses what is no map of these fields; `what` gives an example of one.
void ExpectMap(const YamlNode& node, const std::string& what,
               const std::vector<std::string>& fields);

}  // namespace lab

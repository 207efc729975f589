// Writes scenarios: a document as YAML text, and a scenario flattened to absolute times.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "lab/yaml/yaml_tree.h"

namespace lab {

// Nodes of a document that is made rather than read; they have no place in a file.
YamlNode MakeScalar(const std::string& text);
YamlNode MakeScalar(int64_t number);
YamlNode MakeList(std::vector<YamlNode> items);
YamlNode MakeMap(std::vector<std::pair<std::string, YamlNode>> fields);

// `step` with "at: ms" before its fields.
YamlNode AtTime(int64_t ms, const YamlNode& step);

// The scenario `root` with the same requests at the same times, each step at an absolute time:
// `repeat` is unrolled and `wait` is time, except a last one, which keeps the end of the run. A
// document that ReadScenarioSteps would refuse is refused alike, with InputError.
YamlNode Flattened(const YamlNode& root);

// Writes `root` as a file that LoadYamlFile reads back to the same document: a line for each field,
// and one for each step.
//   head  lines of comment above it, without "# "
void WriteScenario(std::ostream& out, const YamlNode& root, const std::vector<std::string>& head);

}  // namespace lab

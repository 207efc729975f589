#include "lab/scenes/scene_values.h"

#include <algorithm>
#include <cstdlib>

#include "base/ids.h"
#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"

namespace lab {
std::optional<int> FindKeyOpcode(const std::string& key) {
    for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) {
        if (row.name == key) return row.opcode;
    }
    return std::nullopt;
}

int HalValueOfKey(int opcode, const std::string& value) {
    const int number = std::atoi(value.c_str());
    return tarquel::IsFrequencyOpcode(opcode) ? number / 1000 : number;
}

std::optional<int> FindNumber(const SceneElement& element, std::string_view key) {
    std::optional<int> number;
    for (const SceneKey& each : element.keys) {
        if (each.name == key) number = std::atoi(each.value.c_str());
    }
    return number;
}

int DurationOf(const SceneElement& element) {
    return FindNumber(element, tarquel::keys::kDuration).value_or(0);
}

int BoostLimitLevelOf(const SceneElement& element) {
    const std::optional<int> digits = FindNumber(element, tarquel::keys::kBoostLimitLevel);
    return digits ? *digits & 0xF : -1;
}

bool IsLongScene(const SceneCommand& command) {
    return tarquel::IsLongTermScene(command.id) && DurationOf(command.elements.front()) == 0;
}

}  // namespace lab

#include "lab/scenes/scene_values.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "base/ids.h"
#include "loader/element_keys.h"
#include "loader/name_index.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;

constexpr tarquel::NameIndex<tarquel::kOpcodeNames.size()> kOpcodes(tarquel::kOpcodeNames);

// The number of a key that describes the element; of a repeated one the last counts.
std::optional<int> FindNumber(const SceneElement& element, std::string_view key) {
    std::optional<int> number;
    for (const SceneKey& each : element.keys) {
        if (each.name == key) number = std::atoi(each.value.c_str());
    }
    return number;
}

}  // namespace

std::optional<int> FindKeyOpcode(std::string_view key) {
    const int32_t* opcode = kOpcodes.Find(key);
    return opcode ? std::optional<int>(*opcode) : std::nullopt;
}

int HalValueOfKey(int opcode, const std::string& value) {
    const int number = std::atoi(value.c_str());
    return tarquel::IsFrequencyOpcode(opcode) ? number / 1000 : number;
}

int DurationOf(const SceneElement& element) {
    return FindNumber(element, keys::kDuration).value_or(0);
}

int BoostLimitLevelOf(const SceneElement& element) {
    const std::optional<int> digits = FindNumber(element, keys::kBoostLimitLevel);
    return digits ? *digits & 0xF : -1;
}

bool IsLongScene(const SceneCommand& command) {
    return tarquel::IsLongTermScene(command.id) && DurationOf(command.elements.front()) == 0;
}

int CpuRangeNumbers(const std::string& value) {
    int first = 0;
    int last = 0;
    return std::sscanf(value.c_str(), "%d-%d", &first, &last);
}

bool NamesPrimeCluster(const SceneCommand& command) {
    const SceneElement& element = command.elements.front();
    if (command.interactive || element.name != keys::kCpuInfo) return false;
    return std::any_of(element.keys.begin(), element.keys.end(), [](const SceneKey& key) {
        return key.name == keys::kPrimeCpus && CpuRangeNumbers(key.value) == 2;
    });
}

}  // namespace lab

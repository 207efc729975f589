#include "lab/scenes/scene_meaning.h"

#include <algorithm>
#include <map>

#include "base/ids.h"
#include "lab/names/text.h"
#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

std::optional<int> TagOfKey(std::string_view name, Layout layout) {
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        if (row.name != name) continue;
        const int tag =
            layout == Layout::kThreeClusters ? row.tagThreeClusters : row.tagTwoClusters;
        if (tag != tarquel::kNoTag) return tag;
    }
    return std::nullopt;
}

std::optional<int> NumberOf(const std::string& value) {
    if (!IsLoaderNumber(value)) return std::nullopt;
    const std::optional<int64_t> number = ParseNumber(value);
    if (!number || *number < INT32_MIN || *number > INT32_MAX) return std::nullopt;
    return static_cast<int>(*number);
}

}  // namespace

std::optional<int> OpcodeOfKey(std::string_view name) {
    static const std::map<std::string_view, int> opcodes = [] {
        std::map<std::string_view, int> made;
        for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) made[row.name] = row.opcode;
        return made;
    }();
    const auto found = opcodes.find(name);
    if (found == opcodes.end()) return std::nullopt;
    return found->second;
}

bool IsLoaderNumber(const std::string& value) {
    const size_t first = !value.empty() && value[0] == '-' ? 1 : 0;
    return !value.empty() && value.find_first_not_of("0123456789", first) == std::string::npos;
}

ElementMeaning MeaningOf(const SceneCommand& command, const SceneElement& element, Layout layout) {
    ElementMeaning meaning;
    meaning.command = &command;
    meaning.element = &element;
    const bool isInRange = tarquel::IsLongTermScene(command.id);
    bool namesTags = false;
    std::map<std::pair<bool, int>, size_t> firstOfCode;
    std::map<std::string_view, size_t> firstOfHead;
    for (const SceneKey& key : element.keys) {
        KeyMeaning made;
        made.key = &key;
        made.number = NumberOf(key.value);
        const size_t index = meaning.keys.size();
        if (tarquel::keys::IsHeadKey(key.name)) {
            made.kind = KeyMeaning::Kind::kHead;
            made.first = firstOfHead.try_emplace(key.name, index).first->second;
            if (key.name == tarquel::keys::kDuration && made.number) {
                meaning.durationMs = *made.number;
                namesTags = isInRange && meaning.durationMs == 0;
            }
        } else if (const auto code =
                       namesTags ? TagOfKey(key.name, layout) : OpcodeOfKey(key.name)) {
            made.kind = namesTags ? KeyMeaning::Kind::kTag : KeyMeaning::Kind::kOpcode;
            made.code = *code;
            made.first = firstOfCode.try_emplace({namesTags, *code}, index).first->second;
        } else {
            made.first = index;
        }
        meaning.keys.push_back(made);
    }
    meaning.isLongScene = isInRange && meaning.durationMs == 0;
    return meaning;
}

const KeyMeaning* ElementMeaning::FindHead(std::string_view name) const {
    const auto found = std::find_if(keys.rbegin(), keys.rend(), [&](const KeyMeaning& key) {
        return key.kind == KeyMeaning::Kind::kHead && key.key->name == name;
    });
    return found == keys.rend() ? nullptr : &*found;
}

const KeyMeaning* ElementMeaning::FindCode(int code) const {
    const auto found = std::find_if(keys.begin(), keys.end(), [&](const KeyMeaning& key) {
        const bool isTunable =
            key.kind == KeyMeaning::Kind::kOpcode || key.kind == KeyMeaning::Kind::kTag;
        return isTunable && key.code == code;
    });
    return found == keys.end() ? nullptr : &*found;
}

std::vector<const KeyMeaning*> ElementMeaning::Pairs() const {
    std::vector<const KeyMeaning*> pairs;
    for (size_t i = 0; i < keys.size(); ++i) {
        const bool isTunable =
            keys[i].kind == KeyMeaning::Kind::kOpcode || keys[i].kind == KeyMeaning::Kind::kTag;
        if (isTunable && keys[i].first == i) pairs.push_back(&keys[i]);
    }
    std::sort(pairs.begin(), pairs.end(),
              [](const KeyMeaning* a, const KeyMeaning* b) { return a->code < b->code; });
    return pairs;
}

std::string WhereOf(const SceneCommand& command, const SceneElement& element) {
    return "command " + command.Label() + ", <" + element.name + ">";
}

}  // namespace lab

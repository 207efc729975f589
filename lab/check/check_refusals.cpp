// What the plug-in's loader says against a command or refuses, with what its author can do.
#include <fmt/format.h>

#include <algorithm>

#include "freq/scene_limits.h"
#include "lab/check/scene_rules.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_problems.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

using Remark = LoaderRemark::Kind;

std::vector<std::string> KnownKeys(bool isInteractive) {
    if (isInteractive) return {tarquel::kInteractiveKeys.begin(), tarquel::kInteractiveKeys.end()};
    std::vector<std::string> names = {"duration_ms",    "boost_limit_level", "off_delay_time",
                                      "off_delay_perc", "boost_count_limit", "boost_period"};
    for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) names.emplace_back(row.name);
    return names;
}

struct Explanation {
    const char* rule;
    std::string message;
    std::string advice;
};

// A key that a long scene cannot take.
Explanation ExplainSceneKey(const CommandMeaning& command, Layout layout, const std::string& name) {
    if (!command.namesTags) {
        return {"unknown-key",
                name +
                    " cannot be understood: no <qcom_cpu_info> in a command with a lower id "
                    "tells the clusters",
                "give the clusters a command with a low id"};
    }
    std::vector<std::string> names;
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        const std::optional<int> tag = FindSceneTag(row.name, layout);
        if (tag && tarquel::IsSceneTag(*tag)) names.emplace_back(row.name);
    }
    return {
        "unknown-key",
        fmt::format("{}{} is no limit that a long scene takes here; the whole command is refused",
                    name, FindKeyOpcode(name) ? "" : DidYouMean(name, names)),
        "it takes " + Join(names)};
}

// What counts in place of a tunable that stands for the same as an earlier one.
Explanation ExplainRepeat(const ElementMeaning& element, const SceneKey& key) {
    const auto repeated = std::find_if(element.keys.begin(), element.keys.end(),
                                       [&key](const KeyMeaning& each) { return each.key == &key; });
    const SceneKey& first = *element.keys[repeated->first].key;
    const std::string twins = first.name == key.name
                                  ? key.name + " stands here a second time"
                                  : fmt::format("{} and {} are two names of opcode {}", first.name,
                                                key.name, Hex(repeated->code));
    return {"repeated-key",
            fmt::format("{}; the first counts, {} in line {}: this {} is dropped", twins,
                        first.value, first.place.line, key.value),
            "keep one of them"};
}

Explanation Explain(const CommandMeaning& command, const LoaderRemark& remark, Layout layout) {
    const ElementMeaning& element = command.elements[remark.element];
    const SceneKey* key = remark.key;
    switch (remark.kind) {
        case Remark::kUnknownKey:
            if (element.isLongScene) return ExplainSceneKey(command, layout, key->name);
            return {"unknown-key",
                    fmt::format("there is no key {}{}; the whole command is refused", key->name,
                                DidYouMean(key->name, KnownKeys(command.command->interactive))),
                    "correct its name, or remove it"};
        case Remark::kNumber:
            return {"number",
                    fmt::format("{} = '{}' is no decimal number; the whole command is refused",
                                key->name, Shortened(key->value)),
                    "write digits alone, with a minus sign in front if need be"};
        case Remark::kFrequency:
            return {"frequency-range", FrequencyText(command, remark), "write a frequency in kHz"};
        case Remark::kEndless:
            return {"endless-element",
                    fmt::format("this element lasts until released, which only the one element of "
                                "a command may, and the command has {}; all of it is refused",
                                command.elements.size()),
                    "give it a duration_ms above 0, or a command of its own"};
        case Remark::kRepeated:
            return ExplainRepeat(element, *key);
        case Remark::kTooMany:
            return {"too-many-keys",
                    fmt::format("{} tunables, but an element keeps {}, those with the smallest "
                                "opcodes; cut: {}",
                                element.Pairs().size(), kMostPairs,
                                NamesOf(element.Pairs(), kMostPairs)),
                    "move some of them to a second element"};
        case Remark::kNoValue:
            return {"number", key->name + " has no value", "write one"};
        case Remark::kCpuRange:
            return {"number",
                    fmt::format("{} = '{}' is no range of CPUs", key->name, Shortened(key->value)),
                    "write the first and the last one, such as 4-6 or 7-7"};
        case Remark::kIsolation:
            return {"refused", "the plug-in refuses this", ""};
        case Remark::kLevelNumber:
            return {"refused", fmt::format("<{}>: there are levels 0 to 9", element.element->name),
                    "write one of them"};
        case Remark::kLevelName:
            return {"refused",
                    "<" + element.element->name +
                        "> names no level; the plug-in fails on the whole file",
                    "write a level from 0 to 9, such as <freq_level_info3>"};
    }
    return {};
}

}  // namespace

std::string NamesOf(const std::vector<const KeyMeaning*>& pairs, size_t from) {
    std::vector<std::string> names;
    for (size_t i = from; i < pairs.size(); ++i) names.push_back(pairs[i]->key->name);
    return Join(names);
}

void CheckRefusals(RuleContext& context, const CommandMeaning& command) {
    for (const LoaderRemark& remark : command.remarks) {
        const bool isDropped = remark.kind == Remark::kRepeated || remark.kind == Remark::kTooMany;
        const auto [rule, message, advice] = Explain(command, remark, context.layout);
        context.Add(isDropped ? Severity::kWarning : Severity::kError, rule,
                    command.elements[remark.element], command.PlaceOf(remark), message, advice);
        context.findings.back().plugin = remark.words;
    }
}

}  // namespace lab

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

const std::vector<std::string>& KnownKeys(bool isInteractive) {
    static const std::vector<std::string> interactive(tarquel::kInteractiveKeys.begin(),
                                                      tarquel::kInteractiveKeys.end());
    static const std::vector<std::string> all = [] {
        std::vector<std::string> names = {"duration_ms",    "boost_limit_level", "off_delay_time",
                                          "off_delay_perc", "boost_count_limit", "boost_period"};
        for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) names.emplace_back(row.name);
        return names;
    }();
    return isInteractive ? interactive : all;
}

// A key that a long scene cannot take.
void ExplainSceneKey(const CommandMeaning& command, Layout layout, const std::string& name,
                     Finding& finding) {
    if (!command.namesTags) {
        finding.message = name +
                          " cannot be understood: no <qcom_cpu_info> in a command with a "
                          "lower id tells the clusters";
        finding.advice = "give the clusters a command with a low id";
        return;
    }
    std::vector<std::string> names;
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        const bool isTwo = layout == Layout::kTwoClusters;
        const int tag = isTwo ? row.tagTwoClusters : row.tagThreeClusters;
        if (tag != tarquel::kNoTag && tarquel::IsSceneTag(tag)) names.emplace_back(row.name);
    }
    finding.message =
        fmt::format("{}{} is no limit that a long scene takes here; the whole command is refused",
                    name, FindKeyOpcode(name) ? "" : DidYouMean(name, names));
    finding.advice = "it takes " + Join(names);
}

// What counts in place of a tunable that stands for the same as an earlier one.
void ExplainRepeat(const ElementMeaning& element, const SceneKey& key, Finding& finding) {
    const auto repeated = std::find_if(element.keys.begin(), element.keys.end(),
                                       [&key](const KeyMeaning& each) { return each.key == &key; });
    const SceneKey& first = *element.keys[repeated->first].key;
    const std::string twins = first.name == key.name
                                  ? key.name + " stands here a second time"
                                  : fmt::format("{} and {} are two names of opcode {}", first.name,
                                                key.name, Hex(repeated->code));
    finding.message = fmt::format("{}; the first counts, {} in line {}: this {} is dropped", twins,
                                  first.value, first.place.line, key.value);
    finding.advice = "keep one of them";
}

void Explain(const RuleContext& context, const CommandMeaning& command, const LoaderRemark& remark,
             Finding& finding) {
    const ElementMeaning& element = command.elements[remark.element];
    const SceneKey* key = remark.key;
    switch (remark.kind) {
        case Remark::kUnknownKey:
            finding.rule = "unknown-key";
            if (element.isLongScene) {
                return ExplainSceneKey(command, context.layout, key->name, finding);
            }
            finding.message =
                fmt::format("there is no key {}{}; the whole command is refused", key->name,
                            DidYouMean(key->name, KnownKeys(command.command->interactive)));
            finding.advice = "correct its name, or remove it";
            break;
        case Remark::kNumber:
            finding.rule = "number";
            finding.message =
                fmt::format("{} = '{}' is no decimal number; the whole command is refused",
                            key->name, Shortened(key->value));
            finding.advice = "write digits alone, with a minus sign in front if need be";
            break;
        case Remark::kFrequency:
            finding.rule = "frequency-range";
            finding.message = FrequencyText(command, remark);
            finding.advice = "write a frequency in kHz";
            break;
        case Remark::kEndless:
            finding.rule = "endless-element";
            finding.message = fmt::format(
                "this element lasts until released, which only the one element of a "
                "command may, and the command has {}; all of it is refused",
                command.elements.size());
            finding.advice = "give it a duration_ms above 0, or a command of its own";
            break;
        case Remark::kRepeated:
            finding.severity = Severity::kWarning;
            finding.rule = "repeated-key";
            ExplainRepeat(element, *key, finding);
            break;
        case Remark::kTooMany:
            finding.severity = Severity::kWarning;
            finding.rule = "too-many-keys";
            finding.message = fmt::format(
                "{} tunables, but an element keeps {}, those with the smallest opcodes; cut: {}",
                element.Pairs().size(), kMostPairs, NamesOf(element.Pairs(), kMostPairs));
            finding.advice = "move some of them to a second element";
            break;
        case Remark::kNoValue:
            finding.rule = "number";
            finding.message = key->name + " has no value";
            finding.advice = "write one";
            break;
        case Remark::kCpuRange:
            finding.rule = "number";
            finding.message =
                fmt::format("{} = '{}' is no range of CPUs", key->name, Shortened(key->value));
            finding.advice = "write the first and the last one, such as 4-6 or 7-7";
            break;
        case Remark::kIsolation:
            finding.rule = "refused";
            finding.message = "the plug-in refuses this";
            break;
        case Remark::kLevelNumber:
            finding.rule = "refused";
            finding.message = fmt::format("<{}>: there are levels 0 to 9", element.element->name);
            finding.advice = "write one of them";
            break;
        case Remark::kLevelName:
            finding.rule = "refused";
            finding.message = "<" + element.element->name +
                              "> names no level; the plug-in fails on the whole file";
            finding.advice = "write a level from 0 to 9, such as <freq_level_info3>";
            break;
    }
}

}  // namespace

std::string NamesOf(const std::vector<const KeyMeaning*>& pairs, size_t from) {
    std::vector<std::string> names;
    for (size_t i = from; i < pairs.size(); ++i) names.push_back(pairs[i]->key->name);
    return Join(names);
}

void CheckRefusals(RuleContext& context, const CommandMeaning& command) {
    for (const LoaderRemark& remark : command.remarks) {
        Finding finding;
        finding.severity = Severity::kError;
        finding.place = command.PlaceOf(remark);
        finding.where = WhereOf(*command.command, *command.elements[remark.element].element);
        finding.plugin = remark.words;
        Explain(context, command, remark, finding);
        context.findings.push_back(std::move(finding));
    }
}

}  // namespace lab

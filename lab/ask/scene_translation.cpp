// A command's meaning in words.
#include <fmt/format.h>

#include "lab/ask/scene_explanation.h"
#include "lab/names/resource_names.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_meaning.h"
#include "lab/scenes/scene_problems.h"
#include "loader/element_keys.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;
using Kind = CommandMeaning::Kind;

ExplainedPair DescribePair(const KeyMeaning& pair, const ElementMeaning& element, Layout layout) {
    ExplainedPair told;
    told.key = pair.key->name;
    if (pair.kind == KeyMeaning::Kind::kText) {
        told.value = pair.key->value;
    } else if (pair.kind == KeyMeaning::Kind::kTag) {
        const TagFacts* facts = FindTagFacts(pair.code, layout);
        told.code = fmt::format("tag {}", pair.code);
        told.value =
            facts ? BoundText(facts->bound, pair.value, facts->unit) : std::to_string(pair.value);
    } else {
        const Resource resource = ResourceOf(pair.code, layout);
        told.code = Hex(pair.code);
        told.value = BoundText(resource.bound, pair.HandedOn(), resource.unit);
        if (element.isLongScene) {
            told.notes.emplace_back("stands before duration_ms: no tag, but an opcode");
        }
    }
    return told;
}

std::vector<std::string> DescribeDropped(const ElementMeaning& element) {
    std::vector<std::string> dropped;
    for (size_t i = 0; i < element.keys.size(); ++i) {
        const KeyMeaning& key = element.keys[i];
        if (!key.IsTunable()) continue;
        const SceneKey& first = *element.keys[key.first].key;
        if (key.first != i) {
            dropped.push_back(fmt::format(
                "line {}: {} = {} does not count: {} in line {} stands for the same and comes "
                "first",
                key.key->place.line, key.key->name, key.key->value, first.name, first.place.line));
        } else if (key.isCut) {
            dropped.push_back(
                fmt::format("line {}: {} = {} is cut: an element takes {} tunables, those with "
                            "the smallest opcodes",
                            key.key->place.line, key.key->name, key.key->value, kMostPairs));
        }
    }
    return dropped;
}

ExplainedElement DescribeElement(const ElementMeaning& element, const CommandMeaning& command,
                                 Layout layout) {
    ExplainedElement told;
    told.source = element.element;
    told.durationMs = element.durationMs;
    if (command.IsRefused()) return told;
    told.offDelayTime = element.HeadValue(keys::kOffDelayTime, 0);
    told.offDelayPerc = element.HeadValue(keys::kOffDelayPerc, 0);
    told.boostLimitLevel = BoostLimitLevelOf(*element.element);
    for (const KeyMeaning* pair : element.Kept()) {
        told.pairs.push_back(DescribePair(*pair, element, layout));
    }
    told.dropped = DescribeDropped(element);
    return told;
}

}  // namespace

ExplainedCommand TranslateCommand(const SceneFile& scenes, const CommandMeaning& meaning) {
    ExplainedCommand told;
    told.source = meaning.command;
    told.kind = meaning.kind;
    told.countLimit = meaning.FindNumber(keys::kBoostCountLimit);
    told.periodMs = meaning.FindNumber(keys::kBoostPeriod);
    for (const SceneProblem& problem : FindSceneProblems(scenes, meaning)) {
        told.problems.push_back(ProblemText(scenes, problem));
    }
    told.isAccepted = !meaning.IsRefused();
    const Layout layout = scenes.ClusterLayout();
    for (const ElementMeaning& element : meaning.elements) {
        told.elements.push_back(DescribeElement(element, meaning, layout));
    }
    return told;
}

}  // namespace lab

// Frequency levels and how a command reaches them under a thermal level; how often it may boost.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

#include "lab/check/scene_rules.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_problems.h"
#include "loader/element_keys.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;

bool IsPlausible(const std::array<int, 8>& digits) {
    return digits[0] == 0 && digits[5] == 0 && digits[6] == 0 && digits[7] <= kThermalLevels;
}

// A level that a file describes.
struct Level {
    Place place;
    std::set<std::string> keys;
};

void CheckLimitLevel(RuleContext& context, const std::set<int>& levels,
                     const ElementMeaning& element, const KeyMeaning& key) {
    const std::array<int, 8> digits = LevelDigits(*key.number);
    const int highest = digits[7];
    if (!IsPlausible(digits)) {
        const std::string& text = key.key->value;
        int asHex = 0;
        const bool isHex =
            std::from_chars(text.data(), text.data() + text.size(), asHex, 16).ec == std::errc() &&
            IsPlausible(LevelDigits(asHex));
        context.Add(
            Severity::kWarning, "boost-level", element, key.key->place,
            fmt::format("boost_limit_level {} is {:08X} in hexadecimal, which is not of the form "
                        "0ABCD00E with E from 0 to 4{}",
                        *key.number, static_cast<unsigned>(*key.number),
                        highest > kThermalLevels
                            ? "; above 4 it breaks through without raising a ceiling"
                            : ""),
            isHex ? fmt::format("it looks like the hexadecimal digits; in decimal these are {}",
                                asHex)
                  : "19087364, 01234004 in hexadecimal, is levels 1 to 4 up to thermal level 4");
        return;
    }
    if (highest == 0) {
        context.Add(Severity::kNote, "boost-level", element, key.key->place,
                    fmt::format("boost_limit_level {} boosts under no thermal level: its last "
                                "hexadecimal digit is 0",
                                *key.number),
                    "");
    }
    // The frequency levels that are missing, and those that there cannot be, with the thermal
    // levels that reach them.
    std::vector<std::string> missing;
    std::vector<std::string> unreachable;
    for (int thermal = 1; thermal <= highest; ++thermal) {
        const int level = digits[static_cast<size_t>(thermal)];
        if (levels.count(level)) continue;
        (level > kHighestLevel ? unreachable : missing)
            .push_back(fmt::format("{} (under thermal level {})", level, thermal));
    }
    if (!missing.empty()) {
        context.Add(Severity::kWarning, "level-missing", element, key.key->place,
                    fmt::format("no <freq_level_infoN> describes the frequency level{} {}: the "
                                "ceilings rise to the hardware's",
                                missing.size() > 1 ? "s" : "", Join(missing)),
                    "describe what is missing, or name other levels");
    }
    if (!unreachable.empty()) {
        context.Add(
            Severity::kWarning, "boost-level", element, key.key->place,
            fmt::format("there is no frequency level {}: no ceiling rises then", Join(unreachable)),
            "name levels from 0 to 9");
    }
}

void CheckCounts(RuleContext& context, const std::vector<ElementMeaning>& elements) {
    const KeyMeaning* limit = nullptr;
    const KeyMeaning* period = nullptr;
    const ElementMeaning* owner = nullptr;
    bool boosts = false;
    for (const ElementMeaning& element : elements) {
        boosts = boosts || element.FindHead(keys::kBoostLimitLevel) != nullptr;
        for (const auto& [name, kept] :
             {std::pair{keys::kBoostCountLimit, &limit}, std::pair{keys::kBoostPeriod, &period}}) {
            const KeyMeaning* key = element.FindHead(name);
            if (!key) continue;
            if (*kept && (*kept)->number != key->number) {
                context.Add(Severity::kWarning, "count-limit", element, key->key->place,
                            fmt::format("{} is {} here and {} in line {}; the last one counts for "
                                        "the whole command",
                                        key->key->name, key->key->value, (*kept)->key->value,
                                        (*kept)->key->place.line),
                            "give it in one element");
            }
            *kept = key;
            owner = &element;
        }
    }
    if (!owner) return;
    if (!limit || !period) {
        const KeyMeaning& lone = limit ? *limit : *period;
        const std::string_view other = limit ? keys::kBoostPeriod : keys::kBoostCountLimit;
        context.Add(Severity::kWarning, "count-limit", *owner, lone.key->place,
                    fmt::format("{} without {} bounds nothing", lone.key->name, other),
                    fmt::format("add {}, or remove this", other));
        return;
    }
    for (const KeyMeaning* key : {limit, period}) {
        if (key->number.value_or(1) >= 1) continue;
        context.Add(Severity::kWarning, "count-limit", *owner, key->key->place,
                    fmt::format("{} is {}: nothing is bounded", key->key->name, key->key->value),
                    "write a number above 0, or remove both keys");
    }
    if (!boosts) {
        context.Add(Severity::kWarning, "count-limit", *owner, limit->key->place,
                    "boosts are bounded, but the command has no boost_limit_level and never "
                    "breaks through",
                    "add one, or remove both keys");
    }
}

}  // namespace

std::set<int> CheckLevels(RuleContext& context) {
    std::map<int, Level> levels;
    for (const SceneCommand& command : context.scenes.Commands()) {
        const SceneElement& element = command.elements.front();
        const std::optional<int> number = LevelOf(element);
        if (command.interactive || !number || *number < 0 || *number > kHighestLevel) continue;
        Level& level = levels[*number];
        if (level.place.line != 0) {
            context.Add(Severity::kWarning, "level-repeated", element.place,
                        WhereOf(command, element),
                        fmt::format("level {} is described a second time, first in line {}; of "
                                    "each frequency the command with the higher id counts",
                                    *number, level.place.line),
                        "keep one of them");
        }
        level.place = element.place;
        for (const SceneKey& key : element.keys) {
            if (!key.value.empty()) level.keys.insert(key.name);
        }
    }
    std::set<int> numbers;
    for (const auto& [number, level] : levels) {
        numbers.insert(number);
        std::vector<std::string> missing;
        for (const auto& [cluster, cpus, ceiling] : kClusterKeys) {
            const bool isNeeded = ceiling != keys::kPrimeMaxFreq || context.device.HasPrime();
            const std::string key(ceiling);
            if (isNeeded && !level.keys.count(key)) missing.push_back(key);
        }
        if (missing.empty()) continue;
        context.Add(Severity::kWarning, "level-incomplete", level.place, "",
                    fmt::format("level {} has no {}: the whole level counts as missing, and a "
                                "breakthrough at it lifts every ceiling to the hardware's",
                                number, Join(missing)),
                    "give it a frequency for every cluster");
    }
    return numbers;
}

void CheckBoosts(RuleContext& context, const CommandMeaning& command, const std::set<int>& levels) {
    for (const ElementMeaning& element : command.elements) {
        const KeyMeaning* key = element.FindHead(keys::kBoostLimitLevel);
        if (!key || !key->number || element.isLongScene) continue;
        CheckLimitLevel(context, levels, element, *key);
    }
    CheckCounts(context, command.elements);
}

void CheckDescriptions(RuleContext& context) {
    for (const std::string& note : ClusterNotes(context.device)) {
        context.Add(Severity::kNote, "clusters", {}, "", note,
                    "see which tags reach which CPUs with 'tarquel-lab nodes'");
    }
    for (const SceneProblem& problem : FindClusterProblems(context.scenes, context.device)) {
        context.Add(Severity::kWarning, "clusters", problem.place, "", problem.message,
                    "describe the clusters of the device, or name another with --device");
    }
    std::vector<std::string> cpuKeys;
    std::vector<std::string> levelKeys;
    for (const auto& [cluster, cpus, ceiling] : kClusterKeys) {
        cpuKeys.emplace_back(cpus);
        levelKeys.emplace_back(ceiling);
    }
    cpuKeys.emplace_back(keys::kIsolation);
    for (const SceneCommand& command : context.scenes.Commands()) {
        const bool describes = IsDescription(command);
        for (size_t i = 1; i < command.elements.size(); ++i) {
            const SceneElement& element = command.elements[i];
            if (!describes && !IsDescription(element)) continue;
            context.Add(describes ? Severity::kWarning : Severity::kError, "description",
                        element.place, WhereOf(command, element),
                        describes ? "the first element of this command describes the device; this "
                                    "one is passed over"
                                  : "<" + element.name +
                                        "> describes the device only as the first element of its "
                                        "command; here it is an action",
                        "give it a command of its own");
        }
        if (!describes) continue;
        const SceneElement& element = command.elements.front();
        const auto& known = DescribesClusters(command) ? cpuKeys : levelKeys;
        for (const SceneKey& key : element.keys) {
            if (std::find(known.begin(), known.end(), key.name) != known.end()) continue;
            context.Add(Severity::kWarning, "description", key.place, WhereOf(command, element),
                        "the plug-in passes over " + key.name + DidYouMean(key.name, known),
                        "it knows " + Join(known));
        }
    }
}

}  // namespace lab

// How the keys of an element stand together, and the attributes around them.
#include <fmt/format.h>

#include <algorithm>

#include "base/ids.h"
#include "freq/scene_limits.h"
#include "lab/check/scene_rules.h"
#include "lab/names/text.h"
#include "loader/element_keys.h"
#include "nodes/inter_path_table.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;
using Kind = KeyMeaning::Kind;

constexpr const char kTaskBoostKey[] = "sched_task_boost";

// Of a head key that is repeated the last counts, and levels pile up.
void CheckRepeats(RuleContext& context, const ElementMeaning& element) {
    for (size_t i = 0; i < element.keys.size(); ++i) {
        const KeyMeaning& key = element.keys[i];
        if (key.kind != Kind::kHead || key.first == i) continue;
        const bool isLevel = key.key->name == keys::kBoostLimitLevel;
        context.Add(Severity::kWarning, "repeated-key", element, key.key->place,
                    fmt::format("{} stands here a second time, the first is in line {}; {}",
                                key.key->name, element.keys[key.first].key->place.line,
                                isLevel ? "the thermal level of the last counts, but the frequency "
                                          "levels of the first"
                                        : "the last one counts"),
                    "keep one of them");
    }
}

void CheckCount(RuleContext& context, const ElementMeaning& element) {
    if (element.isLongScene) return;
    const std::vector<const KeyMeaning*> pairs = element.Kept();
    const size_t kept = pairs.size();
    if (kept > kMostLockPairs) {
        context.Add(Severity::kWarning, "too-many-keys", element, pairs[kMostLockPairs]->key->place,
                    fmt::format("{} tunables are kept, but a lock takes {}; never locked: {}", kept,
                                kMostLockPairs, NamesOf(pairs, kMostLockPairs)),
                    "move some of them to a second element");
    }
    const KeyMeaning* level = element.FindHead(keys::kBoostLimitLevel);
    const size_t ceilings = context.device.HasPrime() ? 3 : 2;
    if (level && level->number.value_or(0) > 0 && kept <= kMostLockPairs &&
        kept + ceilings > kMostLockPairs) {
        context.Add(Severity::kWarning, "too-many-keys", element, level->key->place,
                    fmt::format("{} tunables leave no room for the {} ceilings that a "
                                "breakthrough appends: a lock takes {}",
                                kept, ceilings, kMostLockPairs),
                    "move some of them to a second element");
    }
}

// A long scene whose keys stand before its duration: they are read as opcodes, not as tags.
void CheckOrder(RuleContext& context, const ElementMeaning& element) {
    if (!element.isLongScene) return;
    const KeyMeaning* duration = element.FindHead(keys::kDuration);
    for (const KeyMeaning& key : element.keys) {
        if (key.kind != Kind::kOpcode) continue;
        const std::string where = duration
                                      ? fmt::format("{} stands before the duration_ms in line {}",
                                                    key.key->name, duration->key->place.line)
                                      : "there is no duration_ms before " + key.key->name;
        context.Add(Severity::kError, "duration-order", element, key.key->place,
                    where +
                        ", so it is read as an HAL resource; every request of this long scene "
                        "fails",
                    duration ? "put duration_ms first" : "begin with <duration_ms>0</duration_ms>");
    }
}

void CheckLongScene(RuleContext& context, const ElementMeaning& element) {
    for (const KeyMeaning& key : element.keys) {
        if (key.kind != Kind::kTag) continue;
        if (!tarquel::IsSceneTag(key.code)) {
            context.Add(Severity::kError, "scene-key", element, key.key->place,
                        key.key->name + " is understood, but refused whenever the scene runs",
                        "a long scene limits CPU and GPU frequencies alone");
        } else if (key.number.value_or(1) == 0) {
            context.Add(Severity::kWarning, "scene-key", element, key.key->place,
                        key.key->name + " is 0, which asks for nothing", "remove it");
        } else if (key.number.value_or(1) < 0) {
            context.Add(Severity::kError, "scene-key", element, key.key->place,
                        fmt::format("{} is {}; every request of this long scene fails",
                                    key.key->name, key.key->value),
                        "a limit is a frequency above 0");
        }
    }
    if (const KeyMeaning* level = element.FindHead(keys::kBoostLimitLevel)) {
        context.Add(Severity::kWarning, "scene-key", element, level->key->place,
                    "a long scene boosts nothing: boost_limit_level has no effect here",
                    "remove it");
    }
}

void CheckDuration(RuleContext& context, const ElementMeaning& element) {
    const int id = element.command->id;
    const KeyMeaning* duration = element.FindHead(keys::kDuration);
    if (!duration || !duration->number) return;
    if (element.durationMs < 0) {
        context.Add(Severity::kWarning, "never-runs", element, duration->key->place,
                    fmt::format("duration_ms is {}: this element never runs", element.durationMs),
                    "give it a time, or skip=\"1\" to switch it off");
    }
    if (element.durationMs < 1) return;
    if (tarquel::IsLongTermScene(id) && id != tarquel::kCmdQuietOnSuccess) {
        context.Add(
            Severity::kWarning, "event-duration", element, duration->key->place,
            fmt::format("ids 12288 to 13568 are long scenes, which last until their event ends; "
                        "with duration_ms {} this is a boost like any other, whose keys name HAL "
                        "resources and do not compete with other limits",
                        element.durationMs),
            "write 0, or give the command an id outside that range");
    }
    if (id == tarquel::kCmdRegularEvent) {
        context.Add(Severity::kWarning, "event-duration", element, duration->key->place,
                    fmt::format("this command is an event, ended by {}; with duration_ms {} its "
                                "lock may be gone before",
                                tarquel::kCmdRegularEventEnd, element.durationMs),
                    "write 0");
    }
}

void CheckUse(RuleContext& context, const ElementMeaning& element) {
    const bool isUnknown =
        std::any_of(element.keys.begin(), element.keys.end(),
                    [](const KeyMeaning& key) { return key.kind == Kind::kUnknown; });
    if (!isUnknown && element.Pairs().empty() && element.durationMs >= 0) {
        context.Add(Severity::kWarning, "no-tunable", element, element.element->place,
                    element.isLongScene
                        ? "this long scene limits nothing"
                        : "this element holds no tunable; every request of it fails",
                    "add one, or remove the element");
    }
    if (element.element->stateMask < 0) {
        context.Add(Severity::kWarning, "state-mask", element, element.element->place,
                    fmt::format("a state_mask of {} is never tested: it bars nothing",
                                element.element->stateMask),
                    "name the bits as a number above 0");
    }
    const KeyMeaning* task = nullptr;
    for (const KeyMeaning* pair : element.Pairs()) {
        if (pair->code == FindKeyOpcode(kTaskBoostKey)) task = pair;
    }
    if (element.element->taskBoost && !task) {
        context.Add(Severity::kWarning, "task-boost", element, element.element->place,
                    "task_boost=\"1\", but there is no key that takes the task's id",
                    fmt::format("add <{0}>0</{0}>", kTaskBoostKey));
    }
    if (task && !element.element->taskBoost && task->number.value_or(1) == 0) {
        context.Add(Severity::kWarning, "task-boost", element, task->key->place,
                    "no task's id comes here: the command has no task_boost=\"1\"",
                    "add the attribute, or write the id");
    }
}

// What the loader takes for a number and reads as another.
void CheckNumbers(RuleContext& context, const ElementMeaning& element) {
    for (const KeyMeaning& key : element.keys) {
        if (key.number || !key.IsRead()) continue;
        const bool isSign = key.key->value == "-";
        context.Add(Severity::kError, "number", element, key.key->place,
                    isSign ? key.key->name + " is '-', which the plug-in reads as 0"
                           : fmt::format("{} = {} does not fit into 32 bits; the plug-in reads "
                                         "some other number",
                                         key.key->name, Shortened(key.key->value)),
                    isSign ? "write a number" : "write a number from -2147483648 to 2147483647");
    }
}

}  // namespace

void RuleContext::Add(Severity severity, const std::string& rule, Place place, std::string where,
                      std::string message, std::string advice) {
    findings.push_back(
        {severity, rule, place, std::move(where), std::move(message), std::move(advice), ""});
}

void RuleContext::Add(Severity severity, const std::string& rule, const ElementMeaning& element,
                      Place place, std::string message, std::string advice) {
    Add(severity, rule, place, WhereOf(*element.command, *element.element), std::move(message),
        std::move(advice));
}

void CheckElement(RuleContext& context, const ElementMeaning& element) {
    CheckNumbers(context, element);
    CheckRepeats(context, element);
    CheckCount(context, element);
    CheckOrder(context, element);
    CheckDuration(context, element);
    CheckUse(context, element);
    if (element.isLongScene) CheckLongScene(context, element);
}

void CheckInteractive(RuleContext& context, const ElementMeaning& element) {
    bool namesNodes = false;
    bool hasNodes = false;
    for (size_t i = 0; i < element.keys.size(); ++i) {
        const SceneKey& key = *element.keys[i].key;
        const char* path = tarquel::FindInterPath(key.name);
        namesNodes = namesNodes || path;
        hasNodes = hasNodes || (path && context.phone.GetKernel().Has(path));
        if (const size_t first = element.keys[i].first; first != i) {
            const SceneKey& counts = *element.keys[first].key;
            context.Add(Severity::kWarning, "repeated-key", element, key.place,
                        fmt::format("{} stands here a second time; the first counts, {} in line "
                                    "{}",
                                    key.name, counts.value, counts.place.line),
                        "keep one of them");
        }
        if (key.value.empty()) {
            context.Add(Severity::kError, "number", element, key.place,
                        key.name + " has no value; writing it fails", "write one");
        }
    }
    if (!namesNodes) {
        context.Add(Severity::kWarning, "no-tunable", element, element.element->place,
                    "this element names no node of the governor; every request of it fails",
                    "add one, such as hispeed_freq_l");
    } else if (!hasNodes) {
        context.Add(Severity::kNote, "node-missing", element, element.element->place,
                    context.device.name +
                        "'s kernel has no interactive governor: writing its "
                        "nodes fails there",
                    "");
    }
}

}  // namespace lab

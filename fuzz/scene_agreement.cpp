#include "fuzz/scene_agreement.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "lab/scenes/scene_meaning.h"
#include "loader/element_keys.h"

namespace fuzz {
namespace {

using Kind = lab::CommandMeaning::Kind;
namespace keys = tarquel::keys;

std::vector<std::string> LinesSaid(lab::Phone& phone) {
    std::vector<std::string> lines;
    for (const lab::LogLine& line : phone.Events().All<lab::LogLine>()) {
        if (line.priority < lab::kAndroidError) continue;
        lines.push_back(line.text.substr(0, line.text.find_last_not_of('\n') + 1));
    }
    return lines;
}

void AddLines(const lab::CommandMeaning& command, std::vector<std::string>& lines) {
    for (size_t i = 0; i < command.RemarksSaid(); ++i) {
        if (!command.remarks[i].words.empty()) lines.push_back(command.remarks[i].words);
    }
}

// Everything of an action that a scene file decides.
std::string Shown(const Action& action) {
    std::string text = fmt::format(
        "{} {} for {} ms, boost {} {}, off {} {}, skip {} mask {} task {}:", action.cmdId,
        action.name, action.duration, action.boostLimitLevel, fmt::join(action.boostLevels, " "),
        action.offDelayTime, action.offDelayPerc, action.skip, action.stateMask, action.taskBoost);
    for (const int number : action.perfList) text += fmt::format(" {}", number);
    for (const std::string& word : static_cast<const QcomAction&>(action).interList) {
        text += " " + word;
    }
    return text;
}

std::string Shown(const lab::ElementMeaning& element) {
    const lab::SceneElement& source = *element.element;
    const bool isInteractive = element.command->interactive;
    std::vector<int> levels;
    int limit = -1;
    for (const lab::KeyMeaning& key : element.keys) {
        if (key.kind != lab::KeyMeaning::Kind::kHead || key.key->name != keys::kBoostLimitLevel) {
            continue;
        }
        const auto digits = lab::LevelDigits(key.value);
        if (isInteractive) {
            if (limit == -1) limit = key.value;
        } else {
            levels.insert(levels.end(), digits.begin() + 1, digits.begin() + 5);
            limit = digits[7];
        }
    }
    // The governor's action has what its strings say, and nothing else.
    std::string text = fmt::format(
        "{} {} for {} ms, boost {} {}, off {} {}, skip {} mask {} task {}:", element.command->id,
        source.name, element.durationMs, limit, fmt::join(levels, " "),
        element.HeadValue(keys::kOffDelayTime, 0), element.HeadValue(keys::kOffDelayPerc, 0),
        !isInteractive && source.skip ? 1 : 0, isInteractive ? 0 : source.stateMask,
        !isInteractive && source.taskBoost ? 1 : 0);
    for (const lab::KeyMeaning* pair : element.Kept()) {
        text += isInteractive ? " " + pair->key->name + " " + pair->key->value
                              : fmt::format(" {} {}", pair->code, pair->HandedOn());
    }
    return text;
}

std::string CompareCommand(const lab::CommandMeaning& command, const Action* action) {
    const bool makesNone = command.IsRefused() || command.kind == Kind::kDescription;
    const std::string label = command.command->Label();
    if (makesNone && action) return label + " is accepted";
    if (makesNone) return "";
    for (const lab::ElementMeaning& element : command.elements) {
        if (!action) return label + " is refused, or has fewer actions";
        if (Shown(*action) != Shown(element)) {
            return "made: " + Shown(*action) + "\nmeant: " + Shown(element);
        }
        action = action->next;
    }
    return action ? label + " has more actions" : "";
}

}  // namespace

std::string FindDisagreement(lab::SceneFile& scenes, lab::Phone& phone, lab::Library& library) {
    const lab::SceneMeaning meaning(scenes);
    std::vector<lab::CommandMeaning> commands;
    bool fails = false;
    for (const lab::SceneCommand& command : scenes.Commands()) {
        commands.push_back(meaning.Of(command));
        for (const lab::LoaderRemark& remark : commands.back().remarks) {
            fails = fails || remark.kind == lab::LoaderRemark::Kind::kLevelName;
        }
    }
    phone.Events().Clear();
    std::map<int, RawXmlData*> heads = scenes.Heads();
    std::map<int, lab::ActionChain> chains;
    try {
        chains = library.ParseScenes(heads);
    } catch (const std::logic_error&) {
        return fails ? "" : "the loader fails on the file";
    }
    if (fails) return "the loader does not fail";
    // It reads the governor's commands apart from the others.
    std::vector<std::string> lines;
    for (const lab::CommandMeaning& command : commands) {
        if (command.kind != Kind::kInteractive) AddLines(command, lines);
    }
    for (const lab::CommandMeaning& command : commands) {
        if (command.kind != Kind::kInteractive) continue;
        AddLines(command, lines);
        const lab::SceneCommand& source = *command.command;
        lab::ActionChain chain = library.ParseInteractive(scenes.InteractiveRecord(source));
        if (chain) chains.emplace(source.id, std::move(chain));
    }
    const std::vector<std::string> said = LinesSaid(phone);
    if (said != lines) {
        return fmt::format("said:\n{}\nmeant:\n{}", fmt::join(said, "\n"), fmt::join(lines, "\n"));
    }
    for (const lab::CommandMeaning& command : commands) {
        const auto chain = chains.find(command.command->id);
        const Action* action = chain == chains.end() ? nullptr : chain->second.get();
        const std::string difference = CompareCommand(command, action);
        if (!difference.empty()) return difference;
    }
    return "";
}

}  // namespace fuzz

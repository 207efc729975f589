#include "lab/check/scene_check.h"

#include <algorithm>
#include <tuple>

#include "lab/check/scene_rules.h"
#include "lab/scenes/scene_problems.h"

namespace lab {
namespace {

void CheckCommands(RuleContext& context, SceneCheck& check) {
    const std::set<int> levels = CheckLevels(context);
    CheckDescriptions(context);
    for (const SceneCommand& command : context.scenes.Commands()) {
        ++check.commands;
        for (const SceneElement& element : command.elements) check.keys += element.keys.size();
        const CommandMeaning meaning = context.meaning.Of(command);
        CheckRefusals(context, meaning);
        if (meaning.kind == CommandMeaning::Kind::kInteractive) {
            CheckInteractive(context, meaning.elements.front());
        } else if (meaning.kind == CommandMeaning::Kind::kDescription) {
            const ElementMeaning& element = meaning.elements.front();
            if (!DescribesClusters(command)) CheckLevelValues(context, element);
        } else {
            for (const ElementMeaning& element : meaning.elements) {
                CheckElement(context, element);
                CheckValues(context, element);
            }
            CheckBoosts(context, meaning, levels);
        }
    }
}

}  // namespace

size_t SceneCheck::Count(Severity severity) const {
    return static_cast<size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

SceneCheck CheckSceneFile(const std::string& file, const std::string& device) {
    return CheckSceneText(ReadSceneText(file), file, device);
}

SceneCheck CheckSceneText(const std::string& text, const std::string& file,
                          const std::string& device) {
    SceneCheck check;
    check.file = file;
    std::vector<SceneProblem> problems;
    const SceneFile scenes = SceneFile::ParseAll(text, file, problems);
    const auto [profile, why, isAssumed] = DeviceOfScenes(scenes, device);
    check.device = profile.name;
    check.whyDevice = why;

    Phone phone(profile);
    RuleContext context{scenes, profile, SceneMeaning(scenes), scenes.ClusterLayout(), phone,
                        {},     {}};
    for (const SceneProblem& problem : problems) {
        context.Add(Severity::kError, problem.rule, problem.place, "", problem.message, "");
    }
    // A file of which nothing could be read has no clusters to miss.
    if (!scenes.Commands().empty()) {
        CheckCommands(context, check);
    } else if (problems.empty()) {
        context.Add(Severity::kError, "empty", {1, 1}, "", "this file has no command", "add some");
    }
    check.findings = std::move(context.findings);
    check.unchecked.assign(context.unchecked.begin(), context.unchecked.end());
    // Errors first: what is refused hides what would be regretted of it.
    const auto rank = [](const Finding& finding) {
        const bool isAccepted = finding.severity != Severity::kError;
        return std::tuple(isAccepted, finding.place, -static_cast<int>(finding.severity));
    };
    std::stable_sort(check.findings.begin(), check.findings.end(),
                     [&rank](const Finding& a, const Finding& b) { return rank(a) < rank(b); });
    return check;
}

}  // namespace lab

#include "lab/check/scene_check.h"

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "lab/check/scene_rules.h"
#include "lab/names/node_names.h"
#include "lab/scenes/scene_problems.h"

namespace lab {
namespace {

constexpr char kUsualDevice[] = "sm8450";

// Which device a file is checked for.
struct ChosenDevice {
    DeviceProfile profile;
    std::string why;
};

ChosenDevice ChooseDevice(const std::string& wanted, const SceneFile& scenes) {
    if (!wanted.empty()) return {LoadDeviceProfile(wanted), "as asked"};
    const std::string stem = std::filesystem::path(scenes.File()).stem().string();
    const std::vector<std::string> names = DeviceProfileNames();
    if (std::find(names.begin(), names.end(), stem) != names.end()) {
        return {LoadDeviceProfile(stem), "by the file's name"};
    }
    for (const std::string& name : names) {
        DeviceProfile profile = LoadDeviceProfile(name);
        if (FindClusterProblems(scenes, profile).empty()) {
            return {std::move(profile), "whose clusters the file describes"};
        }
    }
    return {LoadDeviceProfile(kUsualDevice),
            "for want of another: the file describes no clusters "
            "of a shipped one; --device chooses"};
}

void CheckCommands(RuleContext& context, SceneCheck& check) {
    LevelRules levels(context);
    levels.CheckDescribed();
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
            levels.CheckCommand(meaning);
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
    const ChosenDevice chosen = ChooseDevice(device, scenes);
    check.device = chosen.profile.name;
    check.whyDevice = chosen.why;

    Phone phone(chosen.profile);
    RuleContext context{
        scenes, chosen.profile, SceneMeaning(scenes), scenes.ClusterLayout(), phone, {}, {}};
    for (const SceneProblem& problem : problems) {
        context.findings.push_back(
            {Severity::kError, problem.rule, problem.place, "", problem.message, "", ""});
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

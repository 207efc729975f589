// tarquel-lab explain: what the commands of a scene file do on a device.
#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "lab/ask/scene_explanation.h"
#include "lab/program/commands.h"
#include "lab/server/inputs.h"

namespace lab {
namespace {

constexpr char kExplainFooter[] =
    R"(SCENES is a scene file or the name of a shipped one; COMMAND a command's name or id. Without
COMMAND every command gets a line.

The plug-in itself runs the command on a phone that nobody else limits: each tunable is shown
with its opcode, what its lock asks, its node and what that reads then; with what is lifted
under each thermal level.

Examples:
  tarquel-lab explain sm8450
  tarquel-lab explain sm8450 game_fight --device sm8450
  tarquel-lab explain my_scenes.xml 4352 --device my_phone.yaml --paths

Returns 0, 1 when the plug-in refuses the command (or, without COMMAND, any), 2 when a file
or the usage is at fault.)";

struct ExplainOptions {
    std::string scenes;
    std::string command;
    std::string device;
    std::string library;
    bool paths = false;
    bool json = false;
};

int Explain(const ExplainOptions& options) {
    const SceneFile scenes = SceneFile::Load(FindSceneFile(options.scenes));
    const Explanation explanation =
        ExplainScenes(scenes, options.command, options.device, options.library);
    const Paint paint = Paint::ForTerminal(STDOUT_FILENO);
    if (options.json) {
        std::cout << JsonText(ExplanationJson(explanation)) << "\n";
    } else if (options.command.empty()) {
        PrintSummary(std::cout, explanation, paint);
    } else {
        PrintCommand(std::cout, explanation, options.paths, paint);
    }
    const bool isRefused =
        std::any_of(explanation.commands.begin(), explanation.commands.end(),
                    [](const ExplainedCommand& command) { return !command.isAccepted; });
    return isRefused ? kFindings : kFine;
}

}  // namespace

void AddExplainCommand(CLI::App& app, int& exitCode) {
    auto explain = AddCommand<ExplainOptions>(
        app, exitCode, "explain",
        "Shows what a scene file's command does on a device, or all of them in short.",
        kExplainFooter, Explain);
    ExplainOptions& options = explain.options;
    explain.Takes("scenes", "SCENES", options.scenes, "The scene file: a path or a shipped name")
        .required();
    explain.Takes("command", "COMMAND", options.command, "The command: a name or an id");
    explain.Takes("--device", "NAME|FILE", options.device,
                  "A shipped name or a YAML file (default: the one that the file describes)");
    explain.Takes("--paths", options.paths, "Show whole paths instead of short names");
    explain.Takes("--json", options.json, "Print JSON");
    explain.TakesLibrary(options.library);
}

}  // namespace lab

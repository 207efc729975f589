// tarquel-lab explain: what the commands of a scene file do on a device.
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "lab/ask/scene_explanation.h"
#include "lab/program/commands.h"
#include "lab/server/inputs.h"

namespace lab {
namespace {

constexpr char kExplainFooter[] =
    "SCENES is a scene file or the name of a shipped one; COMMAND a command's name or id. Without\n"
    "COMMAND every command gets a line.\n"
    "\n"
    "The plug-in itself runs the command on a phone that nobody else limits: each tunable is "
    "shown\n"
    "with its opcode, what its lock asks, its node and what that reads then; with what is lifted\n"
    "under each thermal level.\n"
    "\n"
    "Examples:\n"
    "  tarquel-lab explain sm8450\n"
    "  tarquel-lab explain sm8450 game_fight --device sm8450\n"
    "  tarquel-lab explain my_scenes.xml 4352 --device my_phone.yaml --paths\n"
    "\n"
    "Returns 0, 1 when the plug-in refuses the command (or, without COMMAND, any), 2 when a file\n"
    "or the usage is at fault.";

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
    auto options = std::make_shared<ExplainOptions>();
    CLI::App* explain = app.add_subcommand(
        "explain", "Shows what a scene file's command does on a device, or all of them in short.");
    explain->add_option("scenes", options->scenes, "The scene file: a path or a shipped name")
        ->required()
        ->type_name("SCENES");
    explain->add_option("command", options->command, "The command: a name or an id")
        ->type_name("COMMAND");
    explain
        ->add_option("--device", options->device,
                     "A shipped name or a YAML file (default: the one that the file describes)")
        ->type_name("NAME|FILE");
    explain->add_flag("--paths", options->paths, "Show whole paths instead of short names");
    explain->add_flag("--json", options->json, "Print JSON");
    AddLibraryOption(*explain, options->library);
    explain->footer(kExplainFooter);
    explain->callback([options, &exitCode] { exitCode = Explain(*options); });
}

}  // namespace lab

// tarquel-lab completion and tarquel-lab manual: what is installed beside the program.
#include <iostream>
#include <memory>

#include "lab/program/command_line_pages.h"
#include "lab/program/commands.h"

namespace lab {

void AddManualCommands(CLI::App& app) {
    auto shell = std::make_shared<std::string>();
    CLI::App* completion =
        app.add_subcommand("completion", "Prints the completion of commands for a shell.");
    completion->add_option("shell", *shell, "bash, zsh or fish")
        ->required()
        ->type_name("SHELL")
        ->check(CLI::IsMember({"bash", "zsh", "fish"}, CLI::ignore_case).description(""));
    completion->footer(
        "An installed package has brought it along. For a program elsewhere:\n"
        "  eval \"$(tarquel-lab completion bash)\"");
    completion->callback([&app, shell] { std::cout << ShellCompletion(app, *shell); });
    CLI::App* manual = app.add_subcommand("manual", "Prints the manual page.");
    manual->footer("As man reads it:\n  tarquel-lab manual | man -l -");
    manual->callback([&app] { std::cout << ManualPage(app); });
}

}  // namespace lab

// What is installed beside the program, made from its own commands and options: the manual page and
// the completions of shells.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace lab {

// tarquel-lab(1), as man reads it.
std::string ManualPage(const CLI::App& app);

// The completion of `shell`: "bash", "zsh" or "fish". Values are the names that ship with the lab,
// and files.
std::string ShellCompletion(const CLI::App& app, const std::string& shell);

}  // namespace lab

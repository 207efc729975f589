// How a command of tarquel-lab is declared: what it is given, and what answers it.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "lab/program/commands.h"

namespace lab {

// A command and what the user gives it, an aggregate with the defaults. Both live as long as `app`.
template <typename Options>
struct Command {
    CLI::App& line;
    Options& options;

    // An option, or an operand when `names` has no dash; --help calls its value `value`.
    template <typename Value>
    CLI::Option& Takes(const std::string& names, const std::string& value, Value& into,
                       const std::string& description) {
        return *line.add_option(names, into, description)->type_name(value);
    }

    CLI::Option& Takes(const std::string& names, bool& into, const std::string& description) {
        return *line.add_flag(names, into, description);
    }

    void TakesLibrary(std::string& into) {
        Takes("--library", "FILE", into,
              "The plug-in (default: ../lib/libtarquel_qcom.so beside the program)");
    }
};

// Adds a command. When the user gave it, parsing runs `answer` and leaves what it returns in
// `exitCode`.
template <typename Options>
Command<Options> AddCommand(CLI::App& app, int& exitCode, const std::string& name,
                            const std::string& description, const std::string& footer,
                            int (*answer)(const Options& options)) {
    auto options = std::make_shared<Options>();
    CLI::App& line = *app.add_subcommand(name, description);
    line.footer(footer);
    line.callback([options, answer, &exitCode] { exitCode = answer(*options); });
    return {line, *options};
}

}  // namespace lab

// The commands of tarquel-lab, one file each, and how one is declared.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace lab {

// What the program returns.
enum ExitCode : int {
    kFine = 0,
    kFindings = 1,   // it ran, and something is wrong: a leak, a failed expectation, a refused lock
    kCannotRun = 2,  // a file or the usage is at fault
};

// Adds the command to `app`; when it is the one that the user gave, parsing runs it and leaves the
// program's result in `exitCode`. What cannot run throws std::exception, InputError for a file.
void AddCompareCommand(CLI::App& app, int& exitCode);
void AddHeldCommand(CLI::App& app, int& exitCode);
void AddExplainCommand(CLI::App& app, int& exitCode);
void AddNodesCommand(CLI::App& app, int& exitCode);
void AddProfileCommand(CLI::App& app, int& exitCode);
void AddRunCommand(CLI::App& app, int& exitCode);
void AddStatsCommand(CLI::App& app, int& exitCode);
void AddCheckCommand(CLI::App& app, int& exitCode);
void AddVocabularyCommand(CLI::App& app, int& exitCode);
void AddWhyCommand(CLI::App& app, int& exitCode);
void AddLogcatCommand(CLI::App& app, int& exitCode);
void AddRecordCommand(CLI::App& app, int& exitCode);
void AddManualCommands(CLI::App& app);

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

// The commands of tarquel-lab, one file each.
#pragma once

#include <CLI/CLI.hpp>

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

}  // namespace lab

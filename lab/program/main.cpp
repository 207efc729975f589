#include <cerrno>
#include <exception>
#include <iostream>
#include <string>
#include <system_error>

#include "lab/names/paint.h"
#include "lab/program/commands.h"

namespace {

// What the program returns when all that it said has been written: a full disk or a reader that
// went away must not look like success.
int ExitCodeOfWritten(int exitCode, const lab::Paint& paint) {
    errno = 0;
    std::cout.flush();
    if (std::cout.good()) return exitCode;
    // Of a write that failed before the reason is lost.
    const std::string reason = errno == 0 ? "" : ": " + std::generic_category().message(errno);
    std::cerr << paint(lab::Colour::kRed, "standard output cannot be written" + reason) << "\n";
    return lab::kCannotRun;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "A phone on the desk: runs the unmodified libtarquel_qcom.so on Linux and shows what it "
        "does.",
        "tarquel-lab"};
    app.set_version_flag("--version", "tarquel-lab " TARQUEL_LAB_VERSION);
    app.require_subcommand(1);
    int exitCode = lab::kFine;
    lab::AddRunCommand(app, exitCode);
    lab::AddCheckCommand(app, exitCode);
    lab::AddWhyCommand(app, exitCode);
    lab::AddExplainCommand(app, exitCode);
    lab::AddNodesCommand(app, exitCode);
    lab::AddVocabularyCommand(app, exitCode);
    lab::AddLogcatCommand(app, exitCode);
    lab::AddRecordCommand(app, exitCode);
    const lab::Paint paint = lab::Paint::ForTerminal(2);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version end here too, with 0; every fault of usage is one code.
        const int usageCode = app.exit(error) == 0 ? lab::kFine : lab::kCannotRun;
        return ExitCodeOfWritten(usageCode, paint);
    } catch (const std::exception& error) {
        std::cerr << paint(lab::Colour::kRed, error.what()) << "\n";
        return lab::kCannotRun;
    }
    return ExitCodeOfWritten(exitCode, paint);
}

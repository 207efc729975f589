#include <exception>
#include <iostream>

#include "lab/names/paint.h"
#include "lab/program/commands.h"

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
        return app.exit(error) == 0 ? lab::kFine : lab::kCannotRun;
    } catch (const std::exception& error) {
        std::cerr << paint(lab::Colour::kRed, error.what()) << "\n";
        return lab::kCannotRun;
    }
    return exitCode;
}

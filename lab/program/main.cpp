#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "lab/names/paint.h"
#include "lab/names/text.h"
#include "lab/phone/phone.h"
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

// What the program reads and loads is beside it, or in the source tree and the build folder that
// made it; of a copy of the program or of its build folder something may be missing.
void RequireFolder() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    const fs::path root = fs::read_symlink("/proc/self/exe", ignored).parent_path().parent_path();
    const std::string data = lab::DataFolder();
    std::string missing;
    if (!fs::is_directory(data, ignored)) {
        missing = "its devices, scene files and scenarios neither in " +
                  (root / "share/tarquel-lab").string() + " nor in " + data;
    } else if (!fs::exists(root / "lib" / lab::Phone::kHalLibrary, ignored) &&
               !fs::exists(root / TARQUEL_LIBRARY_FOLDER / lab::Phone::kHalLibrary, ignored)) {
        missing = "no " + std::string(lab::Phone::kHalLibrary) + " in " + (root / "lib").string();
    }
    if (missing.empty()) return;
    throw std::runtime_error(
        "tarquel-lab finds " + missing +
        "; where it was built, 'cmake --install build/default --prefix FOLDER' or './dev package' "
        "makes a folder that runs anywhere as a whole");
}

// What the user meant in place of a command or an option that there is not; empty when all are
// known. After parsing has failed.
std::string MeantText(const CLI::App& app, const char* first) {
    const auto all = [](const CLI::App*) { return true; };
    std::vector<std::string> known;
    for (const CLI::App* command : app.get_subcommands(all)) known.push_back(command->get_name());
    if (first != nullptr && first[0] != '-' &&
        std::find(known.begin(), known.end(), first) == known.end()) {
        return "there is no command '" + lab::Shortened(first) + "'" +
               lab::DidYouMean(first, known) + "; the commands are: " + lab::Join(known) + "\n";
    }
    std::string text;
    for (const CLI::App* command : app.get_subcommands()) {
        known.clear();
        for (const CLI::Option* option : command->get_options()) {
            for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
        }
        for (const std::string& extra : command->remaining()) {
            const std::string name = extra.substr(0, extra.find('='));
            if (!name.starts_with("--")) continue;
            text += command->get_name() + " has no option '" + lab::Shortened(name) + "'" +
                    lab::DidYouMean(name, known) + "\n";
        }
    }
    return text;
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
    lab::AddHeldCommand(app, exitCode);
    lab::AddStatsCommand(app, exitCode);
    lab::AddExplainCommand(app, exitCode);
    lab::AddCompareCommand(app, exitCode);
    lab::AddNodesCommand(app, exitCode);
    lab::AddVocabularyCommand(app, exitCode);
    lab::AddLogcatCommand(app, exitCode);
    lab::AddRecordCommand(app, exitCode);
    lab::AddProfileCommand(app, exitCode);
    lab::AddManualCommands(app);
    app.parse_complete_callback(RequireFolder);
    const lab::Paint paint = lab::Paint::ForTerminal(2);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version end here too, with 0; every fault of usage is one code.
        if (error.get_exit_code() == 0) {
            app.exit(error);
            return ExitCodeOfWritten(lab::kFine, paint);
        }
        const std::string meant = MeantText(app, argc > 1 ? argv[1] : nullptr);
        if (meant.empty()) {
            app.exit(error);
        } else {
            std::cerr << meant << "Run with --help for more information.\n";
        }
        return ExitCodeOfWritten(lab::kCannotRun, paint);
    } catch (const std::exception& error) {
        std::cerr << paint(lab::Colour::kRed, error.what()) << "\n";
        return lab::kCannotRun;
    }
    return ExitCodeOfWritten(exitCode, paint);
}

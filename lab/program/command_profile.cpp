// tarquel-lab profile: a device profile from the phone itself.
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <memory>
#include <system_error>

#include "lab/names/paint.h"
#include "lab/names/text.h"
#include "lab/pictures/file_roles.h"
#include "lab/pictures/output_file.h"
#include "lab/profile/dump_script.h"
#include "lab/profile/profile_maker.h"
#include "lab/program/commands.h"
#include "lab/scenes/scene_problems.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

constexpr char kProfileFooter[] =
    "The script is plain sh and only reads; the phone's own shell runs it, best as root on an "
    "idle\n"
    "phone after boot:\n"
    "  tarquel-lab profile --script > dump.sh\n"
    "  adb push dump.sh /data/local/tmp\n"
    "  adb shell sh /data/local/tmp/dump.sh > dump.txt\n"
    "  tarquel-lab profile dump.txt -o my_phone.yaml\n"
    "  tarquel-lab run --device ./my_phone.yaml --scenes my_scenes.xml my_scenario.yaml\n"
    "\n"
    "Beside the profile it says what had to be guessed, what the plug-in does with clusters that "
    "it\n"
    "has no name for, and which nodes of the plug-in's tables that phone lacks.\n"
    "Returns 0, 1 when the dump is damaged or something is guessed, 2 when a file or the usage is "
    "at\n"
    "fault.";

struct ProfileOptions {
    std::string dump;
    std::string name;
    std::string output;
    bool script = false;
};

PhoneDump LoadDump(const std::string& file) {
    if (file == "-") return ReadDump(std::cin, file);
    errno = 0;
    std::ifstream input(file, std::ios::binary);
    // A folder opens and fails at the first read only.
    if (!input.is_open() || (input.peek() == std::ifstream::traits_type::eof() && errno != 0)) {
        throw InputError(file, 0, 0, "cannot be read: " + std::generic_category().message(errno));
    }
    return ReadDump(input, file);
}

void PrintPaths(const char* what, const LackingNodes& lacking,
                const std::vector<std::string>& paths, std::ostream& out) {
    if (paths.empty()) return;
    const std::string name =
        lacking.tag < 0 ? lacking.name : fmt::format("{} ({})", lacking.name, lacking.tag);
    out << fmt::format(
        "  {:<11} {:<30} {}{}\n", what, name, paths.front(),
        paths.size() == 1 ? "" : fmt::format(" and {} more of {}", paths.size() - 1, lacking.all));
}

void PrintLacking(const std::vector<LackingNodes>& all, std::ostream& out, const Paint& paint) {
    if (all.empty()) {
        out << "The phone has every node of the plug-in's tables.\n";
        return;
    }
    out << paint(Colour::kBold,
                 "Nodes of the plug-in's tables that this phone lacks, by tag or key:")
        << "\n";
    for (const LackingNodes& lacking : all) {
        PrintPaths("missing", lacking, lacking.missing, out);
        PrintPaths("unreadable", lacking, lacking.unreadable, out);
        PrintPaths("not told", lacking, lacking.untold, out);
    }
}

int WriteProfile(const ProfileOptions& options) {
    const PhoneDump dump = LoadDump(options.dump);
    const MadeProfile made = MakeProfile(dump, options.name);
    const std::string yaml = ProfileYaml(made, dump);
    ReadDeviceProfile(LoadYamlText(yaml, options.dump));  // what is written can be loaded
    const bool isFile = !options.output.empty() && options.output != "-";
    if (isFile) {
        OutputFile(options.output).Fill([&](std::ostream& out) { out << yaml; });
    } else {
        std::cout << yaml << std::flush;
    }
    const auto tell = [](const std::string& text) { PrintError(Colour::kYellow, text); };
    for (const std::string& problem : dump.problems) tell(problem);
    for (const auto& [field, why] : made.guesses) {
        tell(fmt::format("{}: {} is a guess: {}", dump.file, field, why));
    }
    for (const std::string& note : ClusterNotes(made.profile)) tell(note);
    PrintLacking(FindLackingNodes(dump, made.profile), isFile ? std::cout : std::cerr,
                 Paint::ForTerminal(isFile ? STDOUT_FILENO : STDERR_FILENO));
    return dump.problems.empty() && made.guesses.empty() ? kFine : kFindings;
}

}  // namespace

void AddProfileCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<ProfileOptions>();
    CLI::App* profile =
        app.add_subcommand("profile", "Makes a device profile of what a phone tells of itself.");
    CLI::Option* dump =
        profile
            ->add_option("dump", options->dump, "What the script printed on the phone: a file or -")
            ->type_name("FILE");
    CLI::Option* script = profile->add_flag(
        "--script", options->script, "Print the script that the phone runs to tell of itself");
    script->excludes(dump);
    profile->add_option("-o,--output", options->output, "Where to write (default: standard output)")
        ->type_name("FILE");
    profile
        ->add_option("--name", options->name,
                     "What the device is called (default: as its chip, in small letters)")
        ->type_name("TEXT")
        ->excludes(script);
    profile->footer(kProfileFooter);
    profile->callback([options, &exitCode] {
        FileRoles roles;
        roles.Writes(options->output, "--output");
        if (options->script) {
            if (options->output.empty() || options->output == "-") {
                std::cout << DumpScript();
            } else {
                OutputFile(options->output).Fill([](std::ostream& out) { out << DumpScript(); });
            }
            return;
        }
        if (options->dump.empty()) throw CLI::RequiredError("DUMP or --script");
        roles.Reads(options->dump, "dump");
        exitCode = WriteProfile(*options);
    });
}

}  // namespace lab

// tarquel-lab profile: a device profile from the phone itself.
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>
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
    R"(The script is plain sh and only reads; the phone's own shell runs it, best as root on an idle
phone after boot:
  tarquel-lab profile --script > dump.sh
  adb push dump.sh /data/local/tmp
  adb shell sh /data/local/tmp/dump.sh > dump.txt
  tarquel-lab profile dump.txt -o my_phone.yaml
  tarquel-lab run --device ./my_phone.yaml --scenes my_scenes.xml my_scenario.yaml

Beside the profile it says what had to be guessed, what the plug-in does with clusters that it
has no name for, and which nodes of the plug-in's tables that phone lacks.
Returns 0, 1 when the dump is damaged or something is guessed, 2 when a file or the usage is at
fault.)";

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

void PrintLacking(const std::vector<LackingNodes>& all, std::ostream& out, const Paint& paint) {
    if (all.empty()) {
        out << "The phone has every node of the plug-in's tables.\n";
        return;
    }
    out << paint(Colour::kBold,
                 "Nodes of the plug-in's tables that this phone lacks, by tag or key:")
        << "\n";
    // By state.
    constexpr const char* kWords[] = {"read", "missing", "unreadable", "not told"};
    for (const LackingNodes& lacking : all) {
        const std::string name =
            lacking.tag < 0 ? lacking.name : fmt::format("{} ({})", lacking.name, lacking.tag);
        for (const auto& [state, paths] : lacking.paths) {
            out << fmt::format(
                "  {:<11} {:<30} {}{}\n", kWords[static_cast<size_t>(state)], name, paths.front(),
                paths.size() == 1
                    ? ""
                    : fmt::format(" and {} more of {}", paths.size() - 1, lacking.all));
        }
    }
}

int WriteProfile(const ProfileOptions& options) {
    const PhoneDump dump = LoadDump(options.dump);
    const MadeProfile made = MakeProfile(dump, options.name);
    const std::string yaml = ProfileYaml(made, dump);
    ReadDeviceProfile(LoadYamlText(yaml, options.dump));  // what is written can be loaded
    WriteOutput(options.output, [&](std::ostream& out) { out << yaml << std::flush; });
    const auto tell = [](const std::string& text) { PrintError(Colour::kYellow, text); };
    for (const std::string& problem : dump.problems) tell(problem);
    for (const auto& [field, why] : made.guesses) {
        tell(fmt::format("{}: {} is a guess: {}", dump.file, field, why));
    }
    for (const std::string& note : ClusterNotes(made.profile)) tell(note);
    const bool isFile = !options.output.empty() && options.output != "-";
    PrintLacking(FindLackingNodes(dump, made.profile), isFile ? std::cout : std::cerr,
                 Paint::ForTerminal(isFile ? STDOUT_FILENO : STDERR_FILENO));
    return dump.problems.empty() && made.guesses.empty() ? kFine : kFindings;
}

int Profile(const ProfileOptions& options) {
    FileRoles roles;
    roles.Writes(options.output, "--output");
    if (options.script) {
        WriteOutput(options.output, [](std::ostream& out) { out << DumpScript(); });
        return kFine;
    }
    if (options.dump.empty()) throw CLI::RequiredError("DUMP or --script");
    roles.Reads(options.dump, "dump");
    return WriteProfile(options);
}

}  // namespace

void AddProfileCommand(CLI::App& app, int& exitCode) {
    auto profile = AddCommand<ProfileOptions>(
        app, exitCode, "profile", "Makes a device profile of what a phone tells of itself.",
        kProfileFooter, Profile);
    ProfileOptions& options = profile.options;
    CLI::Option& dump = profile.Takes("dump", "FILE", options.dump,
                                      "What the script printed on the phone: a file or -");
    CLI::Option& script = profile.Takes("--script", options.script,
                                        "Print the script that the phone runs to tell of itself");
    script.excludes(&dump);
    profile.Takes("-o,--output", "FILE", options.output,
                  "Where to write (default: standard output)");
    profile
        .Takes("--name", "TEXT", options.name,
               "What the device is called (default: as its chip, in small letters)")
        .excludes(&script);
}

}  // namespace lab

// tarquel-lab check: every mistake of scene files.
#include <fmt/format.h>
#include <unistd.h>

#include <iostream>
#include <nlohmann/json.hpp>

#include "lab/check/scene_check.h"
#include "lab/names/table.h"
#include "lab/names/text.h"
#include "lab/program/commands.h"
#include "lab/program/input_files.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

using Json = nlohmann::ordered_json;

struct CheckOptions {
    std::vector<std::string> files;
    std::string device;
    bool strict = false;
    bool json = false;
};

constexpr char kCheckFooter[] =
    R"(SCENES are XML files, as docs/scene-files.md describes them, or folders of such files:
  tarquel-lab check my_scenes.xml
  tarquel-lab check --device sm4450 --strict lab/data/scenes/sm4450.xml
  tarquel-lab check --device my_phone.yaml --json *.xml

Errors are what the plug-in or an XML parser refuses and what is sure to fail, warnings what
is accepted without doing what it seems to say, notes what is worth knowing. Each has its
FILE:LINE:COLUMN and, in brackets, the name of its rule; docs/scene-files.md lists the rules.

Without --device the file's name or its clusters tell the device.
Returns 0 without errors, 1 for errors (with --strict for warnings too), 2 when a file cannot
be read, the device is unknown or the usage is at fault.)";

const char* NameOf(Severity severity) {
    constexpr const char* kNames[] = {"note", "warning", "error"};
    return kNames[static_cast<size_t>(severity)];
}

Colour ColourOf(Severity severity) {
    constexpr Colour kColours[] = {Colour::kCyan, Colour::kYellow, Colour::kRed};
    return kColours[static_cast<size_t>(severity)];
}

void PrintFinding(const std::string& file, const Finding& finding, const Paint& paint) {
    const std::string place =
        finding.place.line == 0
            ? file
            : fmt::format("{}:{}:{}", file, finding.place.line, finding.place.column);
    std::cout << paint(Colour::kBold, place + ":") << " "
              << paint(ColourOf(finding.severity), std::string(NameOf(finding.severity)) + ":")
              << " " << finding.message << " " << paint(Colour::kDim, "[" + finding.rule + "]")
              << "\n";
    if (!finding.where.empty()) std::cout << "    in " << finding.where << "\n";
    if (!finding.plugin.empty()) std::cout << "    plug-in: " << finding.plugin << "\n";
    if (!finding.advice.empty()) std::cout << "    to do: " << finding.advice << "\n";
}

std::string CountsText(size_t errors, size_t warnings, size_t notes) {
    return Counted(errors, "error") + ", " + Counted(warnings, "warning") + ", " +
           Counted(notes, "note");
}

void PrintCheck(const SceneCheck& check, const Paint& paint) {
    for (const Finding& finding : check.findings) PrintFinding(check.file, finding, paint);
    if (!check.unchecked.empty()) {
        std::cout << paint(
                         Colour::kDim,
                         fmt::format("{}: the phone of the lab has no nodes for {}, so nothing is "
                                     "said of their values: {}",
                                     check.file, Counted(check.unchecked.size(), "tunable"),
                                     Join(check.unchecked)))
                  << "\n";
    }
    const size_t errors = check.Count(Severity::kError);
    const size_t warnings = check.Count(Severity::kWarning);
    const Colour colour = errors ? Colour::kRed : warnings ? Colour::kYellow : Colour::kGreen;
    std::cout << check.file << ": "
              << paint(colour, CountsText(errors, warnings, check.Count(Severity::kNote)))
              << (check.commands == 0
                      ? "; no command could be read\n"
                      : fmt::format(" in {} with {}, for {} ({})\n",
                                    Counted(check.commands, "command"), Counted(check.keys, "key"),
                                    check.device, check.whyDevice));
}

Json ToJson(const SceneCheck& check) {
    Json findings = Json::array();
    for (const Finding& finding : check.findings) {
        findings.push_back({{"severity", NameOf(finding.severity)},
                            {"rule", finding.rule},
                            {"line", finding.place.line},
                            {"column", finding.place.column},
                            {"where", finding.where},
                            {"message", finding.message},
                            {"plugin", finding.plugin},
                            {"advice", finding.advice}});
    }
    return {{"file", check.file},
            {"device", check.device},
            {"commands", check.commands},
            {"keys", check.keys},
            {"errors", check.Count(Severity::kError)},
            {"warnings", check.Count(Severity::kWarning)},
            {"notes", check.Count(Severity::kNote)},
            {"unchecked", check.unchecked},
            {"findings", findings}};
}

// The checks of all files that can be read. The faults of the others go to stderr.
int Check(const CheckOptions& options) {
    const Paint paint = Paint::ForTerminal(STDOUT_FILENO);
    if (!options.device.empty()) LoadDeviceProfile(options.device);
    size_t counts[3] = {};
    bool isUnreadable = false;
    Json files = Json::array();
    const std::vector<std::string> names = FilesOf(options.files, {".xml"});
    for (const std::string& file : names) {
        try {
            const SceneCheck check = CheckSceneFile(file, options.device);
            for (const Severity severity :
                 {Severity::kNote, Severity::kWarning, Severity::kError}) {
                counts[static_cast<size_t>(severity)] += check.Count(severity);
            }
            if (options.json) {
                files.push_back(ToJson(check));
            } else {
                PrintCheck(check, paint);
            }
        } catch (const InputError& error) {
            std::cout << std::flush;
            PrintError(Colour::kRed, error.what());
            files.push_back({{"file", file}, {"error", error.what()}});
            isUnreadable = true;
        }
    }
    const auto [notes, warnings, errors] = counts;
    if (options.json) {
        std::cout << JsonText(Json{{"files", files},
                                   {"errors", errors},
                                   {"warnings", warnings},
                                   {"notes", notes}})
                  << "\n";
    } else if (names.size() > 1) {
        std::cout << fmt::format("{}: {}\n", Counted(names.size(), "file"),
                                 CountsText(errors, warnings, notes));
    }
    if (isUnreadable) return kCannotRun;
    return errors > 0 || (options.strict && warnings > 0) ? kFindings : kFine;
}

}  // namespace

void AddCheckCommand(CLI::App& app, int& exitCode) {
    auto check = AddCommand<CheckOptions>(
        app, exitCode, "check",
        "Finds every mistake of scene files: of form, what the plug-in refuses, and what it "
        "accepts though its author would regret it.",
        kCheckFooter, Check);
    CheckOptions& options = check.options;
    check.Takes("scenes", "SCENES", options.files, "The scene files, or folders of them")
        .required();
    check.Takes("--device", "NAME|FILE", options.device,
                "The device that runs them: a shipped name or a YAML file");
    check.Takes("--strict", options.strict, "Return 1 for warnings too");
    check.Takes("--json", options.json, "Print the findings as JSON");
}

}  // namespace lab

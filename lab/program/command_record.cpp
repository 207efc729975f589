// tarquel-lab record: the requests of a scenario or of a log capture as a scenario file.
#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "lab/logcat/log_scenario.h"
#include "lab/names/paint.h"
#include "lab/pictures/file_roles.h"
#include "lab/pictures/output_file.h"
#include "lab/program/commands.h"
#include "lab/program/input_files.h"
#include "lab/server/inputs.h"
#include "lab/server/scenario_writer.h"

namespace lab {
namespace {

struct RecordOptions {
    std::string scenario;
    LogSession::Options log;
    std::string output;
};

constexpr char kRecordFooter[] =
    R"(From a scenario: every request and arrangement at its absolute time, `repeat` unrolled, so that
the moment of interest can be cut out and edited. From a capture of a phone's log: the requests
that its lines show, so that the phone's evening can be played, changed and played again:
  tarquel-lab record full_day -o day.yaml
  adb logcat -d | tarquel-lab record --logcat - -o evening.yaml
  tarquel-lab run evening.yaml

A log cannot tell everything (docs/logcat.md); what is left out is said, with its line.
Returns 0 when all is well, 1 when something of a capture is left out or damaged, 2 when a file
or the usage is at fault.)";

void Write(const RecordOptions& options, const YamlNode& root,
           const std::vector<std::string>& head) {
    WriteOutput(options.output, [&](std::ostream& out) { WriteScenario(out, root, head); });
}

// Replaces the field, or adds it before the steps.
void SetField(YamlNode& root, const std::string& key, const std::string& text) {
    for (auto& [name, value] : root.fields) {
        if (name.scalar != key) continue;
        value = MakeScalar(text);
        return;
    }
    root.fields.insert(root.fields.begin(), {MakeScalar(key), MakeScalar(text)});
}

int RecordScenario(const RecordOptions& options, FileRoles& roles) {
    const std::string scenario = FindScenarioFile(options.scenario);
    ReadScenarioFiles(scenario, {options.log.device, options.log.scenes}, roles);
    const YamlNode root = LoadYamlFile(scenario);
    const ScenarioHead head = ReadScenarioHead(root);
    const Instead instead{options.log.device, options.log.scenes};
    const DeviceProfile device = DeviceOfScenario(instead, head);
    const std::string scenes = ScenesOfScenario(instead, head, device);
    ReadScenarioSteps(root, SceneFile::Load(scenes));  // every mistake, before anything is written
    YamlNode flat = Flattened(root);
    // The copy may stand in another folder than the scenes that it names.
    if (head.scenes || !options.log.scenes.empty()) {
        SetField(flat, "scenes", std::filesystem::absolute(scenes).string());
    }
    if (const std::string file = DeviceFileOf(instead, head); !file.empty()) {
        SetField(flat, "device", std::filesystem::absolute(file).string());
    } else if (!options.log.device.empty()) {
        SetField(flat, "device", options.log.device);
    }
    Write(options, flat, {"Recorded by tarquel-lab record from " + head.file + "."});
    return kFine;
}

int RecordLog(const RecordOptions& options, FileRoles& roles) {
    roles.Reads(FindCapture(options.log.capture), "capture");
    LogSession session(options.log);
    roles.Reads(session.Scenes().File(), "scene file");
    std::vector<LogProblem> leftOut;
    const YamlNode root = ScenarioOf(session, options.log, leftOut);
    std::vector<LogProblem> problems = session.Problems();
    problems.insert(problems.end(), leftOut.begin(), leftOut.end());
    for (const std::string& note : {session.DetailAdvice(), session.UnknownCommands()}) {
        if (!note.empty()) PrintError(Colour::kYellow, note);
    }
    for (const LogProblem& problem : problems) {
        PrintError(Colour::kYellow, ProblemText(session.Log(), problem));
    }
    std::vector<std::string> head = {"Recorded by tarquel-lab record --logcat from " +
                                     session.Log().file + "."};
    if (!session.Log().origin.empty()) {
        head.push_back("Times count from " + session.Log().origin + ".");
    }
    Write(options, root, head);
    return problems.empty() && session.Story().detail != LogDetail::kErrors ? kFine : kFindings;
}

int Record(const RecordOptions& options) {
    if (options.scenario.empty() && options.log.capture.empty()) {
        throw CLI::RequiredError("SCENARIO or --logcat CAPTURE");
    }
    FileRoles roles;
    roles.Writes(options.output, "--output");
    ReadInsteadFiles({options.log.device, options.log.scenes}, roles);
    roles.Reads(options.log.library, "plug-in");
    return options.log.capture.empty() ? RecordScenario(options, roles) : RecordLog(options, roles);
}

}  // namespace

void AddRecordCommand(CLI::App& app, int& exitCode) {
    auto record = AddCommand<RecordOptions>(
        app, exitCode, "record",
        "Writes the requests of a scenario or of a log capture as a scenario file.", kRecordFooter,
        Record);
    RecordOptions& options = record.options;
    CLI::Option& scenario = record.Takes("scenario", "SCENARIO", options.scenario,
                                         "A scenario: a YAML file or a shipped name");
    record
        .Takes("--logcat", "CAPTURE", options.log.capture,
               "A capture of a phone's log instead: a file, a shipped name or -")
        .excludes(&scenario);
    record.Takes("-o,--output", "FILE", options.output,
                 "Where to write (default: standard output)");
    record.Takes("--device", "NAME|FILE", options.log.device,
                 "The device instead of the scenario's, or the phone's");
    record.Takes("--scenes", "FILE", options.log.scenes, "The scene file instead of the device's");
    record.Takes("--library", "FILE", options.log.library,
                 "The plug-in that reads a capture's scenes (default: ../lib/libtarquel_qcom.so "
                 "beside the program)");
}

}  // namespace lab

// tarquel-lab run: plays scenarios on a phone, prints their timelines and draws pictures of them.
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <set>
#include <sstream>

#include "lab/check/scenario_check.h"
#include "lab/logcat/log_writer.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/pictures/picture_files.h"
#include "lab/program/commands.h"
#include "lab/program/coverage.h"
#include "lab/program/input_files.h"
#include "lab/program/junit.h"
#include "lab/program/progress.h"
#include "lab/program/run_result.h"
#include "lab/program/watch.h"
#include "lab/server/inputs.h"
#include "lab/server/runner.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

struct RunOptions {
    std::vector<std::string> scenarios;
    std::string device;
    std::string scenes;
    std::string library;
    std::string trace;
    std::string report;
    std::string logcat;
    std::string junit;
    bool coverage = false;
    int coverageLimit = 0;  // percent of each scene file
    bool summary = false;
    bool watch = false;
    bool verbose = false;
    bool quiet = false;
    bool json = false;
    bool realtime = false;
    bool debug = false;

    // Nothing of a single run on standard output.
    bool IsSilent() const { return json || summary; }

    // Files that show one run.
    bool HasFiles() const { return !trace.empty() || !report.empty() || !logcat.empty(); }
};

constexpr char kRunFooter[] =
    R"(SCENARIO is a YAML file, a folder that stands for all YAML files below it, or the name of one
that ships with the lab:
  tarquel-lab run first_seconds
  tarquel-lab run --device sm4450 thermal_breakthrough
  tarquel-lab run --scenes my_scenes.xml my_scenario.yaml
  tarquel-lab run --quiet scenarios                 # a summary ends several
  tarquel-lab run --summary --coverage-limit 20 --junit results.xml scenarios
  tarquel-lab run -q thermal_breakthrough --report run.html --trace run.json

A scenario says what the policy server is asked, and when:
  device: sm8450
  steps:
    - at: 0                 # ms since the start
      do: app_start_cold    # a command of the scene file
    - after: 200            # ms since the step before
      on: touch             # an event begins
    - after: 800
      limit: {client: thermal, tags: {big_max: 1440000}}

Signs: + lock taken, ~ renewed, - released or expired, = node written, @ timer, ! trouble.
Returns 0 when all is well, 1 for findings (a leak, a failed expectation, a refused lock),
2 when a file or the usage is at fault; of several scenarios the worst. --coverage-limit
returns 1 when fewer of the scenes are used.)";

void PrintProblem(const std::string& text, RunResult& result) {
    std::cout << std::flush;
    PrintError(Colour::kYellow, text);
    result.problems.push_back(text);
}

// What the plug-in refused in the scene file, and where the file does not fit the device.
void PrintProblems(const SceneFile& scenes, const std::vector<SceneProblem>& problems,
                   RunResult& result) {
    for (const SceneProblem& problem : problems) PrintProblem(ProblemText(scenes, problem), result);
}

// How many requests the steps make, repetitions counted.
size_t CountRequests(const std::vector<Step>& steps) {
    size_t count = 0;
    for (const Step& step : steps) {
        if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
            count += static_cast<size_t>(repeat->count) * CountRequests(repeat->steps);
        } else if (!std::holds_alternative<Wait>(step.request)) {
            ++count;
        }
    }
    return count;
}

PictureHead HeadOfPictures(const RunResult& result, Layout layout) {
    const auto nameOf = [](const std::string& file) {
        return std::filesystem::path(file).filename().string();
    };
    const std::string source = nameOf(result.scenario);
    return {result.title.empty() ? source : result.title,
            "scenario " + source,
            result.device,
            nameOf(result.scenes),
            layout,
            result.findings};
}

// Plays one scenario; throws what makes it impossible.
//   files  gets what it reads
void RunScenario(const RunOptions& options, const std::string& name, RunResult& result,
                 Coverage& coverage, std::set<std::string>& files) {
    const std::string file = FindScenarioFile(name);
    files.insert(file);
    YamlNode root = LoadYamlFile(file);
    ScenarioHead head = ReadScenarioHead(root);
    if (options.debug) head.debug = true;
    const Instead instead{options.device, options.scenes};
    const std::string deviceFile = DeviceFileOf(instead, head);
    if (!deviceFile.empty()) files.insert(deviceFile);
    const DeviceProfile device = DeviceOfScenario(instead, head);
    const std::string scenesFile = ScenesOfScenario(instead, head, device);
    files.insert(scenesFile);
    SceneFile scenes = SceneFile::Load(scenesFile);
    const std::vector<Step> steps = ReadScenarioSteps(root, scenes);
    root = {};  // of a large scenario more than all that the run keeps
    coverage.Add(scenes, steps, device.name);
    const Paint paint = Paint::ForTerminal(STDOUT_FILENO);
    const Layout layout = scenes.ClusterLayout();
    result.title = head.title;
    result.device = device.name;
    result.scenes = scenes.File();
    result.scenario = head.file;
    PictureFiles pictures(options.trace, options.report);
    std::optional<OutputFile> logFile;
    if (!options.logcat.empty()) logFile.emplace(options.logcat);
    std::ostringstream log;
    LogcatWriter logWriter(log);

    Phone::Options phoneOptions;
    phoneOptions.realtime = options.realtime;
    Phone phone(device, phoneOptions);
    Book book(device, scenes, phone.GetKernel());
    pictures.Begin(device, book);
    Timeline timeline(std::cout, book, {options.verbose, paint});
    const bool hasTimeline = !options.quiet && !options.IsSilent();
    std::optional<Progress> progress;
    progress.emplace(std::filesystem::path(head.file).stem().string(), CountRequests(steps),
                     !hasTimeline || isatty(STDOUT_FILENO) == 0);
    const auto observe = [&](const Event& event) {
        pictures.Observe(event);
        if (logFile) logWriter.Observe(event);
        if (hasTimeline) timeline.Observe(event);
        if (std::holds_alternative<RequestEnd>(event.what)) {
            ++result.requests;
            progress->Advance(event.at);
        }
    };

    if (!options.IsSilent()) {
        std::cout << paint(Colour::kBold, head.title.empty() ? head.file : head.title) << "\n"
                  << fmt::format("device {}, scenes {}, scenario {}\n\n", device.name,
                                 scenes.File(), head.file);
    }
    for (const std::string& note : ClusterNotes(device)) PrintProblem(note, result);
    PrintProblems(scenes, FindClusterProblems(scenes, device), result);
    for (const std::string& slip : FindUnitSlips(steps, head.file, device, layout)) {
        PrintProblem(slip, result);
    }
    Library library(options.library);
    Server server(phone, library, scenes);
    Runner runner({phone, server, book, device, scenes}, observe);
    runner.Start(head);
    PrintProblems(scenes, server.Problems(), result);
    runner.Play(steps);
    runner.Finish();
    progress.reset();

    const Time now = phone.GetClock().Now();
    result.requests -= 1;  // the start
    result.lastedMs = WholeMs(now);
    result.held = HeldLocks(book, now);
    result.findings = book.Findings();
    if (hasTimeline) std::cout << "\n";
    if (!options.IsSilent()) PrintEnd(result, paint, std::cout);
    pictures.End(now, [&] { return HeadOfPictures(result, layout); });
    if (logFile) logFile->Fill([&](std::ostream& out) { out << log.str(); });
}

// RunScenario with the time that it takes, and with what makes it impossible in the result.
void RunToResult(const RunOptions& options, const std::string& name, RunResult& result,
                 Coverage& coverage, std::set<std::string>& files) {
    result.name = result.scenario = name;
    files.insert(name);
    const auto begin = std::chrono::steady_clock::now();
    try {
        RunScenario(options, name, result, coverage, files);
    } catch (const std::exception& error) {
        result.error = error.what();
        std::cout << std::flush;
        PrintError(Colour::kRed, error.what());
    }
    result.tookSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// One result more for each scene file of which too little is used.
void AddLacks(const std::vector<Coverage::File>& files, int least,
              std::vector<RunResult>& results) {
    for (const Coverage::File& file : files) {
        if (file.Percent() >= least) continue;
        RunResult& lack = results.emplace_back();
        lack.name = "coverage";
        lack.scenario = file.scenes;
        lack.findings.push_back(
            {.text = fmt::format("{}; at least {} % are asked for", file.Text(), least)});
    }
}

std::vector<std::string> ScenariosOf(const RunOptions& options) {
    return FilesOf(options.scenarios, {".yaml", ".yml"});
}

// Nothing that is read may be written over, whichever scenario reads it.
void RequireOwnFiles(const RunOptions& options, const std::vector<std::string>& names) {
    FileRoles roles;
    roles.Writes(options.trace, "--trace");
    roles.Writes(options.report, "--report");
    roles.Writes(options.logcat, "--logcat");
    roles.Writes(options.junit, "--junit");
    if (options.watch && !options.report.empty()) {
        roles.Writes(Watch::StampFileOf(options.report), "--watch");
    }
    const Instead instead{options.device, options.scenes};
    ReadInsteadFiles(instead, roles);
    roles.Reads(options.library, "plug-in");
    for (const std::string& name : names) {
        std::string file;
        try {
            file = FindScenarioFile(name);
        } catch (const InputError&) {
            continue;  // told when it is to be played
        }
        if (roles.WritesNothing()) {
            roles.Reads(file, "scenario");
        } else {
            ReadScenarioFiles(file, instead, roles);
        }
    }
}

// Plays all; `files` gets what they read.
int RunAll(const RunOptions& options, std::set<std::string>& files) {
    const std::vector<std::string> names = ScenariosOf(options);
    const bool isOne = names.size() == 1;
    if (options.HasFiles() && !isOne) {
        throw std::runtime_error(
            "--trace, --report and --logcat show one scenario; give one, or run them one by one");
    }
    RequireOwnFiles(options, names);
    std::optional<OutputFile> junit;
    if (!options.junit.empty()) junit.emplace(options.junit);
    std::vector<RunResult> results;
    Coverage coverage;
    for (const std::string& name : names) {
        RunToResult(options, name, results.emplace_back(), coverage, files);
        if (!isOne && !options.IsSilent()) std::cout << "\n";
    }
    const Paint paint = Paint::ForTerminal(STDOUT_FILENO);
    std::vector<Coverage::File> covered;
    if (options.coverage || options.coverageLimit > 0) covered = coverage.Files();
    std::vector<RunResult> all = results;
    AddLacks(covered, options.coverageLimit, all);
    const ExitCode exit = WorstExit(all);
    if (junit) junit->Fill([&](std::ostream& out) { WriteJunit(all, out); });
    if (options.json) {
        PrintJson(results, covered, exit, std::cout);
        return exit;
    }
    for (const Coverage::File& file : covered) {
        const bool isEnough = file.Percent() >= options.coverageLimit;
        std::cout << paint(isEnough ? Colour::kGreen : Colour::kRed, file.Text())
                  << (isEnough
                          ? ""
                          : fmt::format("; at least {} % are asked for", options.coverageLimit))
                  << "\n";
    }
    if (options.summary) {
        PrintSummaryLine(results, paint, std::cout);
    } else if (!isOne) {
        PrintSummary(results, paint, std::cout);
    }
    return exit;
}

// Runs all, and again whenever a file was edited.
int RunWatched(const RunOptions& options) {
    Watch watch(options.report);
    std::set<std::string> files;
    int exit = kCannotRun;
    for (bool isAgain = false;; isAgain = true) {
        if (isAgain && isatty(STDOUT_FILENO) != 0) std::cout << "\033[H\033[2J";
        watch.Begin();
        exit = RunAll(options, files);
        watch.End(files, exit != kCannotRun);
        std::cout << std::flush;
        PrintError(Colour::kDim,
                   fmt::format("Watching {}; Ctrl-C ends.", Counted(watch.Files(), "file")));
        if (!watch.WaitForChange([&] { return ScenariosOf(options); })) return exit;
    }
}

int Run(const RunOptions& options) {
    if (options.watch) return RunWatched(options);
    std::set<std::string> files;
    return RunAll(options, files);
}

}  // namespace

void AddRunCommand(CLI::App& app, int& exitCode) {
    auto run = AddCommand<RunOptions>(
        app, exitCode, "run",
        "Plays scenarios on a phone and prints their timelines, the locks still held, and "
        "whatever leaked; draws pictures of a run.",
        kRunFooter, Run);
    RunOptions& options = run.options;
    run.Takes("scenario", "SCENARIO", options.scenarios,
              "The scenarios: YAML files, folders of them or shipped names")
        .required();
    run.Takes("--device", "NAME|FILE", options.device,
              "The device instead of the scenario's: a shipped name or a YAML file");
    run.Takes("--scenes", "FILE", options.scenes, "The scene file instead of the device's");
    run.Takes("--trace", "FILE.json", options.trace,
              "Write a trace for ui.perfetto.dev or chrome://tracing; the plug-in's own sections "
              "are in it with --debug");
    run.Takes("--report", "FILE.html", options.report,
              "Write a page that shows limits, locks and log on one time axis; needs no network");
    run.Takes("--json", options.json,
              "Print findings and locks held as JSON, instead of the timeline");
    run.Takes("--summary", options.summary, "Print one line for all scenarios, and what was found");
    run.Takes("--junit", "FILE.xml", options.junit,
              "Write the results as JUnit XML, for a CI server");
    run.Takes("--coverage", options.coverage,
              "Say which scenes of the scene files no scenario uses");
    run.Takes("--coverage-limit", "PERCENT", options.coverageLimit,
              "As --coverage, and fail when less of a scene file is used, in percent")
        .check(CLI::Range(0, 100, ""));
    run.Takes("--watch", options.watch,
              "Run again whenever a scenario, scene file or device is edited, until Ctrl-C; an "
              "open report reloads itself");
    run.Takes("-v,--verbose", options.verbose,
              "Show info and debug lines, trace sections, node reads and whole paths too");
    run.Takes("-q,--quiet", options.quiet, "Print the end of the run only");
    run.Takes("--realtime", options.realtime,
              "Use the machine's clock and timers instead of the virtual clock");
    run.Takes("--debug", options.debug,
              "Turn the plug-in's debug lines on from the start, as 'debug: on' does");
    run.Takes("--logcat", "FILE", options.logcat,
              "Write the plug-in's log lines as logcat -v threadtime prints them; see --debug");
    run.TakesLibrary(options.library);
}

}  // namespace lab

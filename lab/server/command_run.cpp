// tarquel-lab run: plays a scenario on a phone and prints its timeline.
#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "lab/logcat/log_writer.h"
#include "lab/server/commands.h"
#include "lab/server/node_names.h"
#include "lab/server/runner.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

struct RunOptions {
    std::string scenario;
    std::string device;
    std::string scenes;
    std::string library;
    bool verbose = false;
    bool quiet = false;
    bool realtime = false;
    std::string logcat;
    bool debug = false;
};

constexpr char kFooter[] =
    "SCENARIO is a YAML file, or the name of one that ships with the lab:\n"
    "  tarquel-lab run first_seconds\n"
    "  tarquel-lab run --device sm4450 thermal_breakthrough\n"
    "  tarquel-lab run --scenes my_scenes.xml my_scenario.yaml\n"
    "\n"
    "A scenario says what the policy server is asked, and when:\n"
    "  device: sm8450\n"
    "  steps:\n"
    "    - at: 0                 # ms since the start\n"
    "      do: app_start_cold    # a command of the scene file\n"
    "    - after: 200            # ms since the step before\n"
    "      on: touch             # an event begins\n"
    "    - after: 800\n"
    "      limit: {client: thermal, tags: {big_max: 1440000}}\n"
    "\n"
    "Signs: + lock taken, ~ renewed, - released or expired, = node written, @ timer, ! trouble.\n"
    "Returns 0 when all is well, 1 for findings (a leak, a failed expectation, a refused lock),\n"
    "2 when a file or the usage is at fault.";

// `name` as a path, or as the name of a shipped file of `folder`.
std::string FindFile(const std::string& name, const std::string& folder,
                     const std::string& extension) {
    namespace fs = std::filesystem;
    std::error_code ignored;
    if (fs::is_regular_file(name, ignored)) return name;
    const std::string shipped = DataFolder() + "/" + folder + "/" + name;
    if (fs::is_regular_file(shipped, ignored)) return shipped;
    if (fs::is_regular_file(shipped + extension, ignored)) return shipped + extension;
    return name;
}

// A scene file that a scenario names: beside the scenario first.
std::string FindScenes(const std::string& name, const std::string& scenarioFile) {
    const std::filesystem::path beside = std::filesystem::path(scenarioFile).parent_path() / name;
    std::error_code ignored;
    if (std::filesystem::is_regular_file(beside, ignored)) return beside.string();
    return FindFile(name, "scenes", ".xml");
}

std::string ScenesFor(const RunOptions& options, const ScenarioHead& head,
                      const DeviceProfile& device) {
    if (!options.scenes.empty()) return FindFile(options.scenes, "scenes", ".xml");
    // A scenario's scenes are for its own device; another one brings its own.
    const bool isOwnDevice = options.device.empty() || options.device == head.device;
    if (head.scenes && isOwnDevice) return FindScenes(*head.scenes, head.file);
    return FindFile(device.name, "scenes", ".xml");
}

void PrintHeld(const std::vector<PerfHal::Lock>& held, const Ledger& ledger, Time now,
               Layout layout, const Paint& paint) {
    if (held.empty()) {
        std::cout << "No lock is held.\n";
        return;
    }
    std::cout << paint(Colour::kBold, fmt::format("Locks still held: {}", held.size())) << "\n";
    for (const PerfHal::Lock& lock : held) {
        const RequestFacts* owner = ledger.Owner(lock.handle);
        const std::string lasts =
            lock.until
                ? fmt::format(
                      "for {} ms more",
                      std::chrono::duration_cast<std::chrono::milliseconds>(*lock.until - now)
                          .count())
                : std::string("until released");
        std::string asker = "nobody";
        if (owner) {
            asker =
                owner->line ? fmt::format("{} (line {})", owner->text, owner->line) : owner->text;
        }
        std::cout << fmt::format("  lock {:<4} {}, taken by: {}\n", lock.handle, lasts, asker);
        for (size_t i = 0; i + 1 < lock.list.size(); i += 2) {
            std::cout << "            "
                      << Timeline::PairText(lock.list[i], lock.list[i + 1], layout)
                      << (ledger.IsAtDefault(lock.list[i], lock.list[i + 1])
                              ? ", the default: limits nothing\n"
                              : "\n");
        }
    }
}

int PrintFindings(const std::vector<std::string>& findings, const Paint& paint) {
    if (findings.empty()) {
        std::cout << paint(Colour::kGreen,
                           "Nothing leaked: every lock and every limit belongs to a request in "
                           "force.")
                  << "\n";
        return kFine;
    }
    std::cout << paint(Colour::kRed, fmt::format("Findings: {}", findings.size())) << "\n";
    for (const std::string& finding : findings) {
        std::cout << paint(Colour::kRed, "  ! " + finding) << "\n";
    }
    return kFindings;
}

// What the plug-in refused in the scene file, and where the file does not fit the device.
void PrintProblems(const SceneFile& scenes, const std::vector<SceneProblem>& problems,
                   const Paint& paint) {
    std::cout << std::flush;
    for (const SceneProblem& problem : problems) {
        std::cerr << paint(Colour::kYellow, ProblemText(scenes, problem)) << "\n";
    }
}

int Run(const RunOptions& options) {
    const YamlNode root = LoadYamlFile(FindFile(options.scenario, "scenarios", ".yaml"));
    ScenarioHead head = ReadScenarioHead(root);
    if (options.debug) head.debug = true;
    const DeviceProfile device =
        LoadDeviceProfile(options.device.empty() ? head.device : options.device);
    SceneFile scenes = SceneFile::Load(ScenesFor(options, head, device));
    const std::vector<Step> steps = ReadScenarioSteps(root, scenes);
    const Paint paint = Paint::ForTerminal(STDOUT_FILENO);
    const Layout layout = scenes.ClusterLayout();

    Phone::Options phoneOptions;
    phoneOptions.realtime = options.realtime;
    Phone phone(device, phoneOptions);
    for (const auto& [name, value] : head.properties) phone.SetProperty(name, value);
    Ledger ledger(device, layout, phone.GetKernel());
    Timeline timeline(std::cout, layout, {options.verbose, paint});
    std::optional<std::ofstream> logFile;
    std::optional<LogcatWriter> log;
    if (!options.logcat.empty()) {
        logFile.emplace(options.logcat);
        log.emplace(*logFile);
    }
    const auto observe = [&](const Event& event) {
        ledger.Observe(event);
        if (log) log->Observe(event);
        if (!options.quiet) timeline.Observe(event);
    };

    std::cout << paint(Colour::kBold, head.title.empty() ? head.file : head.title) << "\n"
              << fmt::format("device {}, scenes {}, scenario {}\n\n", device.name, scenes.File(),
                             head.file);
    PrintProblems(scenes, FindClusterProblems(scenes, device), Paint::ForTerminal(STDERR_FILENO));
    Library library(options.library);
    Server server(phone, library, scenes);
    Runner runner(phone, server, ledger, device, scenes, observe);
    runner.Start(head);
    PrintProblems(scenes, server.Problems(), Paint::ForTerminal(STDERR_FILENO));
    runner.Play(steps);
    runner.Finish();
    if (logFile && !logFile->flush()) {
        throw InputError(options.logcat, 0, 0, "the log cannot be written");
    }

    const std::vector<PerfHal::Lock> held = phone.Hal().Held();
    std::cout << "\n";
    PrintHeld(held, ledger, phone.GetClock().Now(), layout, paint);
    return PrintFindings(ledger.Findings(phone.Hal()), paint);
}

}  // namespace

void AddRunCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* run = app.add_subcommand(
        "run",
        "Plays a scenario on a phone and prints its timeline, the locks still held, and "
        "whatever leaked.");
    run->add_option("scenario", options->scenario, "The scenario: a YAML file or a shipped name")
        ->required()
        ->type_name("SCENARIO");
    run->add_option("--device", options->device,
                    "The device instead of the scenario's: a shipped name or a YAML file")
        ->type_name("NAME|FILE");
    run->add_option("--scenes", options->scenes, "The scene file instead of the device's")
        ->type_name("FILE");
    run->add_flag("-v,--verbose", options->verbose,
                  "Show info and debug lines, trace sections, node reads and whole paths too");
    run->add_flag("-q,--quiet", options->quiet, "Print the end of the run only");
    run->add_flag("--realtime", options->realtime,
                  "Use the machine's clock and timers instead of the virtual clock");
    run->add_flag("--debug", options->debug,
                  "Turn the plug-in's debug lines on from the start, as 'debug: on' does");
    run->add_option(
           "--logcat", options->logcat,
           "Write the plug-in's log lines as logcat -v threadtime prints them; see --debug")
        ->type_name("FILE");
    run->add_option("--library", options->library,
                    "The plug-in (default: ../lib/libtarquel_qcom.so beside the program)")
        ->type_name("FILE");
    run->footer(kFooter);
    run->callback([options, &exitCode] { exitCode = Run(*options); });
}

}  // namespace lab

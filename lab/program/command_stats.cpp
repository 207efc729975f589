// tarquel-lab stats: what runs and captures come to.
#include <unistd.h>

#include <iostream>

#include "lab/ask/run_stats.h"
#include "lab/program/replay_options.h"

namespace lab {
namespace {

constexpr char kStatsFooter[] =
    R"(Of each scene and client: how often it asked, how long it held something, how long something
of its counted (as 'why' tells it), and to whom it lost. Of each cluster, the GPU and the
buses that are limited: how long each floor and ceiling was in force, and by whom. Several
runs are told side by side.

With --power the floors' cost in mWh, against no floor and between the runs: a model that
takes the cluster to sit at its floor. The file is CSV or YAML, with mW of the whole cluster:
  cluster,mhz,mw            - {cluster: big, khz: 633600, mw: 95}
  big,633.6,95              - {cluster: big, khz: 2112000, mw: 940}

Examples:
  tarquel-lab stats thermal_breakthrough
  tarquel-lab stats evening.txt thermal_breakthrough --power my_phone.csv
  tarquel-lab stats evening.txt --at 19:42:30 --json

Returns 0, or 2 when a file or the usage is at fault.)";

constexpr int kMostHolds = 1000;

struct StatsOptions {
    Replay::Options replay;
    std::vector<std::string> files;
    std::string power;
    int longest = 10;
    bool json = false;
};

int TellStats(const StatsOptions& options) {
    std::vector<RunStats> runs;
    std::optional<PowerModel> model;
    // One after the other: there is one phone at a time.
    for (const std::string& file : options.files) {
        Replay::Options one = options.replay;
        one.file = file;
        const std::unique_ptr<Replay> replay = Replay::Open(one);
        if (!options.power.empty()) model = PowerModel::Load(options.power, replay->Device());
        runs.push_back(CountRun(*replay, file));
        // A floor that the file does not reach is told before anything else.
        if (model) runs.back().costs = FloorCosts(runs.back(), *model);
        for (const std::string& remark : runs.back().remarks) {
            PrintError(Colour::kYellow, file + ": " + remark);
        }
    }
    if (options.json) {
        std::cout << RunStatsJson(runs, model ? &*model : nullptr) << "\n";
    } else {
        PrintRunStats(std::cout, runs, model ? &*model : nullptr,
                      static_cast<size_t>(options.longest), Paint::ForTerminal(STDOUT_FILENO));
    }
    return kFine;
}

}  // namespace

void AddStatsCommand(CLI::App& app, int& exitCode) {
    auto stats = AddCommand<StatsOptions>(
        app, exitCode, "stats",
        "Counts what scenarios or captures come to: who held and counted how long, how long each "
        "floor and ceiling was in force.",
        kStatsFooter, TellStats);
    StatsOptions& options = stats.options;
    stats
        .Takes("files", "FILE", options.files,
               "Scenarios (YAML files), captures of a phone's log, or what ships under a name")
        .required();
    TakeReplayOptions(stats, options.replay);
    stats.Takes("--power", "FILE", options.power,
                "What frequencies cost: CSV or YAML of cluster, mhz or khz, mw");
    stats
        .Takes("--longest", "N", options.longest,
               "How many of the longest holds of each run are shown")
        .check(CLI::Range(0, kMostHolds, ""))
        ->capture_default_str();
    stats.Takes("--json", options.json, "Print JSON");
}

}  // namespace lab

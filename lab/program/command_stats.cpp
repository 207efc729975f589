// tarquel-lab stats: what runs and captures come to.
#include <unistd.h>

#include <iostream>
#include <memory>

#include "lab/ask/run_stats.h"
#include "lab/program/replay_options.h"

namespace lab {
namespace {

constexpr char kStatsFooter[] =
    "Of each scene and client: how often it asked, how long it held something, how long something\n"
    "of its counted (as 'why' tells it), and to whom it lost. Of each cluster, the GPU and the\n"
    "buses that are limited: how long each floor and ceiling was in force, and by whom. Several\n"
    "runs are told side by side.\n"
    "\n"
    "With --power the floors' cost in mWh, against no floor and between the runs: a model that\n"
    "takes the cluster to sit at its floor. The file is CSV or YAML, with mW of the whole "
    "cluster:\n"
    "  cluster,mhz,mw            - {cluster: big, khz: 633600, mw: 95}\n"
    "  big,633.6,95              - {cluster: big, khz: 2112000, mw: 940}\n"
    "\n"
    "Examples:\n"
    "  tarquel-lab stats thermal_breakthrough\n"
    "  tarquel-lab stats evening.txt thermal_breakthrough --power my_phone.csv\n"
    "  tarquel-lab stats evening.txt --at 19:42:30 --json\n"
    "\n"
    "Returns 0, or 2 when a file or the usage is at fault.";

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
    const Paint errors = Paint::ForTerminal(STDERR_FILENO);
    // One after the other: there is one phone at a time.
    for (const std::string& file : options.files) {
        Replay::Options one = options.replay;
        one.file = file;
        const std::unique_ptr<Replay> replay = Replay::Open(one);
        if (!options.power.empty()) model = PowerModel::Load(options.power, replay->Device());
        runs.push_back(CountRun(*replay, file));
        // A floor that the file does not reach is told before anything else.
        if (model) FloorCosts(runs.back(), *model);
        for (const std::string& remark : runs.back().remarks) {
            std::cerr << errors(Colour::kYellow, file + ": " + remark) << "\n";
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
    auto options = std::make_shared<StatsOptions>();
    CLI::App* stats = app.add_subcommand(
        "stats",
        "Counts what scenarios or captures come to: who held and counted how long, how long each "
        "floor and ceiling was in force.");
    stats
        ->add_option(
            "files", options->files,
            "Scenarios (YAML files), captures of a phone's log, or what ships under a name")
        ->required()
        ->type_name("FILE");
    AddReplayOptions(*stats, options->replay);
    stats
        ->add_option("--power", options->power,
                     "What frequencies cost: CSV or YAML of cluster, mhz or khz, mw")
        ->type_name("FILE");
    stats
        ->add_option("--longest", options->longest,
                     "How many of the longest holds of each run are shown")
        ->check(CLI::Range(0, kMostHolds, ""))
        ->capture_default_str()
        ->type_name("N");
    stats->add_flag("--json", options->json, "Print JSON");
    stats->footer(kStatsFooter);
    stats->callback([options, &exitCode] { exitCode = TellStats(*options); });
}

}  // namespace lab

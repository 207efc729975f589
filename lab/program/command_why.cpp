// tarquel-lab why: who holds a node, and why the others lost.
#include <unistd.h>

#include <iostream>

#include "lab/ask/why.h"
#include "lab/program/replay_options.h"

namespace lab {
namespace {

constexpr char kWhyFooter[] = R"(NODE is what you have at hand:
  /sys/devices/system/cpu/cpu4/cpufreq/scaling_max_freq    a path, or the end of one
  "cpu4 scaling_max_freq"                                  as a timeline writes it
  big_max, 4                                               a tag's name or number
  big_cpu0_max_freq, 0x40804000                            a scene file's key, an opcode

Examples:
  tarquel-lab why thermal_breakthrough big_max --at 5.200
  tarquel-lab why my_scenario.yaml "cpu0 scaling_min_freq" --json
  tarquel-lab why evening.txt big_max --at 19:42:30

Each who asks is shown with what it asked, since when and until when, the step of the
scenario, and the rule by which it counts or loses; then those that asked before.
Returns 0, or 2 when a file or the usage is at fault.)";

constexpr int kMostHistory = 1'000'000;

struct WhyOptions {
    Replay::Options replay;
    std::string node;
    int history = 10;
    bool json = false;
};

int AnswerWhy(const WhyOptions& options) {
    const WhyAnswer answer = AskWhy(*Replay::Open(options.replay), options.node);
    for (const std::string& problem : answer.remarks) PrintError(Colour::kYellow, problem);
    if (options.json) {
        std::cout << WhyJson(answer) << "\n";
    } else {
        PrintWhy(std::cout, answer, static_cast<size_t>(options.history),
                 Paint::ForTerminal(STDOUT_FILENO));
    }
    return kFine;
}

}  // namespace

void AddWhyCommand(CLI::App& app, int& exitCode) {
    auto why = AddCommand<WhyOptions>(
        app, exitCode, "why",
        "Plays a scenario or a capture up to a moment and tells who holds a node then, and why "
        "the others lost.",
        kWhyFooter, AnswerWhy);
    WhyOptions& options = why.options;
    TakeReplayFile(why, options.replay.file);
    why.Takes("node", "NODE", options.node, "The node: path, short form, tag or key").required();
    TakeReplayOptions(why, options.replay);
    why.Takes("--history", "N", options.history, "How many of those that asked before are shown")
        .check(CLI::Range(0, kMostHistory, ""))
        ->capture_default_str();
    why.Takes("--json", options.json, "Print JSON, with all that asked before");
}

}  // namespace lab

// tarquel-lab held: everything that is not at its default, and who holds it.
#include <unistd.h>

#include <iostream>

#include "lab/ask/held.h"
#include "lab/program/replay_options.h"

namespace lab {
namespace {

constexpr char kHeldFooter[] = R"(Examples:
  tarquel-lab held evening.txt --at 19:42:30
  tarquel-lab held game_throttling --at 12.5
  tarquel-lab held bugreport.zip --longest 20

Each node is shown with its value, who holds it since when and until when, who loses and by
which rule. Of a capture that began late or lost lines, what is not sure says why.
Returns 0; 1 when an event was begun, or a lock taken, minutes ago and not ended; 2 when a
file or the usage is at fault.)";

constexpr int kMostLongest = 1000;

struct HeldOptions {
    Replay::Options replay;
    int longest = 0;
    bool json = false;
};

int AnswerHeld(const HeldOptions& options) {
    const HeldAnswer answer = AskHeld(*Replay::Open(options.replay));
    for (const std::string& remark : answer.remarks) PrintError(Colour::kYellow, remark);
    if (options.json) {
        std::cout << HeldJson(answer) << "\n";
    } else {
        PrintHeld(std::cout, answer, static_cast<size_t>(options.longest),
                  Paint::ForTerminal(STDOUT_FILENO));
    }
    return answer.findings.empty() ? kFine : kFindings;
}

}  // namespace

void AddHeldCommand(CLI::App& app, int& exitCode) {
    auto held = AddCommand<HeldOptions>(
        app, exitCode, "held",
        "Lists everything that is not at its default at a moment of a scenario or a capture: who "
        "holds it, and who loses.",
        kHeldFooter, AnswerHeld);
    HeldOptions& options = held.options;
    TakeReplayFile(held, options.replay.file);
    TakeReplayOptions(held, options.replay);
    held.Takes("--longest", "N", options.longest,
               "List the N longest holds until then instead, those that ended among them")
        .check(CLI::Range(1, kMostLongest, ""));
    held.Takes("--json", options.json, "Print JSON, with nodes and holds");
}

}  // namespace lab

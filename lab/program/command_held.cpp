// tarquel-lab held: everything that is not at its default, and who holds it.
#include <unistd.h>

#include <iostream>
#include <memory>

#include "lab/ask/held.h"
#include "lab/program/replay_options.h"

namespace lab {
namespace {

constexpr char kHeldFooter[] =
    "Examples:\n"
    "  tarquel-lab held evening.txt --at 19:42:30\n"
    "  tarquel-lab held game_throttling --at 12.5\n"
    "  tarquel-lab held bugreport.zip --longest 20\n"
    "\n"
    "Each node is shown with its value, who holds it since when and until when, who loses and by\n"
    "which rule. Of a capture that began late or lost lines, what is not sure says why.\n"
    "Returns 0; 1 when an event was begun, or a lock taken, minutes ago and not ended; 2 when a\n"
    "file or the usage is at fault.";

constexpr int kMostLongest = 1000;

struct HeldOptions {
    Replay::Options replay;
    int longest = 0;
    bool json = false;
};

int AnswerHeld(const HeldOptions& options) {
    const HeldAnswer answer = AskHeld(*Replay::Open(options.replay));
    const Paint errors = Paint::ForTerminal(STDERR_FILENO);
    for (const std::string& remark : answer.remarks) {
        std::cerr << errors(Colour::kYellow, remark) << "\n";
    }
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
    auto options = std::make_shared<HeldOptions>();
    CLI::App* held = app.add_subcommand(
        "held",
        "Lists everything that is not at its default at a moment of a scenario or a capture: who "
        "holds it, and who loses.");
    held->add_option("file", options->replay.file,
                     "A scenario (a YAML file), a capture of a phone's log, or what ships under a "
                     "name")
        ->required()
        ->type_name("FILE");
    AddReplayOptions(*held, options->replay);
    held->add_option("--longest", options->longest,
                     "List the N longest holds until then instead, those that ended among them")
        ->check(CLI::Range(1, kMostLongest, ""))
        ->type_name("N");
    held->add_flag("--json", options->json, "Print JSON, with nodes and holds");
    held->footer(kHeldFooter);
    held->callback([options, &exitCode] { exitCode = AnswerHeld(*options); });
}

}  // namespace lab

// tarquel-lab vocabulary: every key of scene files.
#include <unistd.h>

#include <iostream>
#include <memory>

#include "lab/ask/vocabulary_list.h"
#include "lab/program/commands.h"

namespace lab {
namespace {

constexpr char kVocabularyFooter[] =
    "The tunables by family with the opcode that the perf HAL gets and the unit of their values,\n"
    "then the keys that describe an element, the clusters, the frequency levels, the interactive\n"
    "governor, and those by which long scenes name limits.\n"
    "\n"
    "Examples:\n"
    "  tarquel-lab vocabulary | grep uclamp\n"
    "  tarquel-lab vocabulary --json\n"
    "  tarquel-lab vocabulary --markdown > docs/reference-vocabulary.md\n"
    "\n"
    "Returns 0, or 2 when the usage is at fault.";

struct VocabularyOptions {
    bool markdown = false;
    bool json = false;
};

int ShowVocabulary(const VocabularyOptions& options) {
    if (options.json) {
        std::cout << JsonText(VocabularyJson()) << "\n";
    } else if (options.markdown) {
        PrintVocabularyPage(std::cout);
    } else {
        PrintVocabulary(std::cout, Paint::ForTerminal(STDOUT_FILENO));
    }
    return kFine;
}

}  // namespace

void AddVocabularyCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<VocabularyOptions>();
    CLI::App* vocabulary = app.add_subcommand(
        "vocabulary", "Lists every key of scene files with its opcode, family and unit.");
    CLI::Option* markdown =
        vocabulary->add_flag("--markdown", options->markdown, "Print a page of documentation");
    vocabulary->add_flag("--json", options->json, "Print JSON")->excludes(markdown);
    vocabulary->footer(kVocabularyFooter);
    vocabulary->callback([options, &exitCode] { exitCode = ShowVocabulary(*options); });
}

}  // namespace lab

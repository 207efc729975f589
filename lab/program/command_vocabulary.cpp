// tarquel-lab vocabulary: every key of scene files.
#include <unistd.h>

#include <iostream>

#include "lab/ask/vocabulary_list.h"
#include "lab/program/commands.h"

namespace lab {
namespace {

constexpr char kVocabularyFooter[] =
    R"(The tunables by family with the opcode that the perf HAL gets and the unit of their values,
then the keys that describe an element, the clusters, the frequency levels, the interactive
governor, and those by which long scenes name limits.

Examples:
  tarquel-lab vocabulary | grep uclamp
  tarquel-lab vocabulary --json
  tarquel-lab vocabulary --markdown > docs/reference-vocabulary.md

Returns 0, or 2 when the usage is at fault.)";

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
    auto vocabulary = AddCommand<VocabularyOptions>(
        app, exitCode, "vocabulary",
        "Lists every key of scene files with its opcode, family and unit.", kVocabularyFooter,
        ShowVocabulary);
    VocabularyOptions& options = vocabulary.options;
    CLI::Option& markdown =
        vocabulary.Takes("--markdown", options.markdown, "Print a page of documentation");
    vocabulary.Takes("--json", options.json, "Print JSON").excludes(&markdown);
}

}  // namespace lab

// tarquel-lab compare: what two files of one kind do differently.
#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "lab/ask/run_comparison.h"
#include "lab/ask/scene_comparison.h"
#include "lab/logcat/log_session.h"
#include "lab/program/commands.h"
#include "lab/server/inputs.h"
#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

constexpr char kCompareFooter[] =
    R"(A and B are scene files, or runs: scenarios or captures of a phone's log; a path or the name
of what ships.

Of scene files each scene is compared by what its user gets: floors and ceilings in MHz, how
long, online cores, other tunables. The order of keys, other names of the same tunable, keys
that count for nothing and values that become the same are no difference. With --device values
are that device's steps.

Runs are played, one after the other, and their requests put side by side by what they ask:
those that one alone makes, and of the others the result, what their locks hold and for how
long, which nodes have another value then, and what is found at the end. When something
happens is no difference. --device and --scenes stand for both.

Examples:
  tarquel-lab compare sm8450 my_scenes.xml
  tarquel-lab compare --device my_phone.yaml sm8450 my_scenes.xml --json
  tarquel-lab compare thermal_breakthrough evening.txt

Returns 0 when nothing differs, 1 when something does, 2 when a file or the usage is at fault.)";

struct CompareOptions {
    std::string before;
    std::string after;
    std::string device;
    std::string scenes;
    std::string library;
    bool json = false;
};

int CompareSceneFiles(const CompareOptions& options) {
    const SceneFile before = SceneFile::Load(FindSceneFile(options.before));
    const SceneFile after = SceneFile::Load(FindSceneFile(options.after));
    std::optional<DeviceProfile> device;
    if (!options.device.empty()) device = LoadDeviceProfile(options.device);
    const SceneComparison comparison = CompareScenes(before, after, device ? &*device : nullptr);
    if (options.json) {
        std::cout << JsonText(ComparisonJson(comparison)) << "\n";
    } else {
        PrintComparison(std::cout, comparison, Paint::ForTerminal(STDOUT_FILENO));
    }
    return comparison.differences.empty() ? kFine : kFindings;
}

RunRecord RecordOf(const std::string& file, const CompareOptions& options) {
    Replay::Options replay;
    replay.file = file;
    replay.instead.device = options.device;
    replay.instead.scenes = options.scenes;
    replay.library = options.library;
    RunRecord record = RecordRun(*Replay::Open(replay), file);
    for (const std::string& remark : record.remarks) {
        PrintError(Colour::kYellow, file + ": " + remark);
    }
    return record;
}

int CompareTwoRuns(const CompareOptions& options) {
    // One after the other: there is one phone at a time.
    const RunRecord before = RecordOf(options.before, options);
    const RunRecord after = RecordOf(options.after, options);
    const RunComparison comparison = CompareRuns(before, after);
    if (options.json) {
        std::cout << RunComparisonJson(comparison) << "\n";
    } else {
        PrintRunComparison(std::cout, comparison, Paint::ForTerminal(STDOUT_FILENO));
    }
    return comparison.differences.empty() ? kFine : kFindings;
}

// What can be compared, each with itself.
struct Comparable {
    const char* what;
    int (*compare)(const CompareOptions& options);
};
constexpr Comparable kComparables[] = {
    {"a scene file", CompareSceneFiles},
    {"a scenario or a capture", CompareTwoRuns},
};
constexpr size_t kSceneFile = 0;
constexpr size_t kRun = 1;

bool BeginsAsXml(const std::string& path) {
    constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
    std::ifstream file(path, std::ios::binary);
    std::string mark(kUtf8Mark.size(), '\0');
    file.read(mark.data(), static_cast<std::streamsize>(mark.size()));
    if (mark != kUtf8Mark) {
        file.clear();
        file.seekg(0);
    }
    char first = 0;
    file >> first;
    return first == '<';
}

// Which of kComparables a file is: by its text, whatever it is called. Nothing for what can be read
// once only: a pipe is what the other is.
std::optional<size_t> KindOf(const std::string& name) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(name, ignored)) {
        return BeginsAsXml(name) ? kSceneFile : kRun;
    }
    if (IsInput(name)) return std::nullopt;
    if (FindCapture(name) != name) return kRun;
    try {
        FindScenarioFile(name);
        return kRun;
    } catch (const InputError&) {
        FindSceneFile(name);  // tells what is wrong with the name
        return kSceneFile;
    }
}

int Compare(const CompareOptions& options) {
    const std::optional<size_t> before = KindOf(options.before);
    const std::optional<size_t> after = KindOf(options.after);
    if (before && after && *before != *after) {
        throw InputError(
            options.after, 0, 0,
            fmt::format("is {}, and {} is {}; compare two of one kind", kComparables[*after].what,
                        options.before, kComparables[*before].what));
    }
    return kComparables[before.value_or(after.value_or(kSceneFile))].compare(options);
}

}  // namespace

void AddCompareCommand(CLI::App& app, int& exitCode) {
    auto compare = AddCommand<CompareOptions>(
        app, exitCode, "compare",
        "Tells what two scene files, scenarios or captures do differently.", kCompareFooter,
        Compare);
    CompareOptions& options = compare.options;
    compare.Takes("before", "A", options.before, "The former file: a path or a shipped name")
        .required();
    compare.Takes("after", "B", options.after, "The newer one").required();
    compare.Takes("--device", "NAME|FILE", options.device,
                  "Tell values as steps of a device, or play on it: a shipped name or a YAML file");
    compare.Takes("--scenes", "FILE", options.scenes,
                  "Of runs: the scene file instead of the device's");
    compare.Takes("--json", options.json, "Print JSON");
    compare.Takes("--library", "FILE", options.library,
                  "Of runs: the plug-in (default: ../lib/libtarquel_qcom.so beside the program)");
}

}  // namespace lab

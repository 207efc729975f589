// tarquel-lab compare: what two files of one kind do differently.
#include <fmt/format.h>
#include <unistd.h>

#include <iostream>
#include <memory>

#include "lab/ask/scene_comparison.h"
#include "lab/program/commands.h"
#include "lab/server/inputs.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

constexpr char kCompareFooter[] =
    "A and B are scene files, or names of shipped ones. Each scene is compared by what its user\n"
    "gets: floors and ceilings in MHz, how long, online cores, other tunables. The order of keys,\n"
    "other names of the same tunable, keys that count for nothing and values that become the same\n"
    "are no difference. With --device values are that device's steps.\n"
    "\n"
    "Examples:\n"
    "  tarquel-lab compare sm8450 my_scenes.xml\n"
    "  tarquel-lab compare --device my_phone.yaml sm8450 my_scenes.xml --json\n"
    "\n"
    "Returns 0 when nothing differs, 1 when something does, 2 when a file or the usage is at "
    "fault.";

struct CompareOptions {
    std::string before;
    std::string after;
    std::string device;
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

// A scene file is known by its text, whatever it is called: it begins as XML does.
bool IsSceneFile(const std::string& name) {
    constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
    const std::string text = ReadSceneText(FindSceneFile(name));
    const size_t mark = text.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0;
    const size_t first = text.find_first_not_of(" \t\r\n", mark);
    return first != text.npos && text[first] == '<';
}

// What can be compared, each with itself.
struct Comparable {
    const char* what;
    bool (*fits)(const std::string& name);
    int (*compare)(const CompareOptions& options);
};
constexpr Comparable kComparables[] = {
    {"a scene file", IsSceneFile, CompareSceneFiles},
};

int Compare(const CompareOptions& options) {
    for (const Comparable& row : kComparables) {
        const bool fitsBefore = row.fits(options.before);
        if (fitsBefore && row.fits(options.after)) return row.compare(options);
        if (!fitsBefore && !row.fits(options.after)) continue;
        throw InputError(fitsBefore ? options.after : options.before, 0, 0,
                         fmt::format("is not {}, as {} is; compare two of one kind", row.what,
                                     fitsBefore ? options.before : options.after));
    }
    throw InputError(options.before, 0, 0, "is nothing that can be compared; give two scene files");
}

}  // namespace

void AddCompareCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<CompareOptions>();
    CLI::App* compare =
        app.add_subcommand("compare", "Tells what two scene files do differently, scene by scene.");
    compare->add_option("before", options->before, "The former file: a path or a shipped name")
        ->required()
        ->type_name("SCENES");
    compare->add_option("after", options->after, "The newer one")->required()->type_name("SCENES");
    compare
        ->add_option("--device", options->device,
                     "Tell values as steps of a device: a shipped name or a YAML file")
        ->type_name("NAME|FILE");
    compare->add_flag("--json", options->json, "Print JSON");
    compare->footer(kCompareFooter);
    compare->callback([options, &exitCode] { exitCode = Compare(*options); });
}

}  // namespace lab

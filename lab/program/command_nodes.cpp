// tarquel-lab nodes: every tag of a device with its nodes.
#include <unistd.h>

#include <iostream>

#include "lab/ask/tag_survey.h"
#include "lab/program/commands.h"
#include "lab/scenes/scene_problems.h"

namespace lab {
namespace {

constexpr char kNodesFooter[] =
    R"(Starts the plug-in on a phone, reads every tag, sets each one, and shows beside the plug-in's
tables what was seen.

Examples:
  tarquel-lab nodes --device sm4450
  tarquel-lab nodes --device my_phone.yaml --paths
  tarquel-lab nodes --json | jq '.tags[] | select(.settable)'

Returns 0, or 2 when a file or the usage is at fault.)";

struct NodesOptions {
    std::string device = kUsualDevice;
    std::string library;
    bool paths = false;
    bool markdown = false;
    bool json = false;
};

void PrintPage(const std::string& library) {
    std::cout
        << "# Tags and nodes\n\n"
           "Made by `tarquel-lab nodes --markdown` on the shipped devices; `./dev docs` writes "
           "it anew. Each tag\nhas been read and set on a phone of the lab: \"there\" is "
           "whether the device has the node (or which\nCPU has it), \"boot\" what the node "
           "reads after boot, \"reads\" what the plug-in reads, \"set by\"\nwhat a request for "
           "the tag was seen to do.\n";
    for (const std::string& name : DeviceProfileNames()) {
        const DeviceProfile device = LoadDeviceProfile(name);
        PrintTagsSection(std::cout, device, SurveyTags(device, library));
    }
}

int ShowNodes(const NodesOptions& options) {
    if (options.markdown) {
        PrintPage(options.library);
        return kFine;
    }
    const DeviceProfile device = LoadDeviceProfile(options.device);
    for (const std::string& note : ClusterNotes(device)) PrintError(Colour::kYellow, note);
    const std::vector<TagReport> tags = SurveyTags(device, options.library);
    if (options.json) {
        std::cout << JsonText(TagsJson(device, tags)) << "\n";
    } else {
        PrintTags(std::cout, tags, options.paths, Paint::ForTerminal(STDOUT_FILENO));
    }
    return kFine;
}

}  // namespace

void AddNodesCommand(CLI::App& app, int& exitCode) {
    auto nodes = AddCommand<NodesOptions>(
        app, exitCode, "nodes",
        "Lists every tag with its nodes, what they read, and whether it can be set.", kNodesFooter,
        ShowNodes);
    NodesOptions& options = nodes.options;
    CLI::Option& device =
        nodes.Takes("--device", "NAME|FILE", options.device, "A shipped name or a YAML file");
    device.capture_default_str();
    nodes.Takes("--paths", options.paths, "Show whole paths instead of short names");
    CLI::Option& json = nodes.Takes("--json", options.json, "Print JSON");
    nodes
        .Takes("--markdown", options.markdown,
               "Print a page of documentation, of every shipped device")
        .excludes(&json)
        ->excludes(&device);
    nodes.TakesLibrary(options.library);
}

}  // namespace lab

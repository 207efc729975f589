// The tags of a device as text, as Markdown and as JSON.
#include <fmt/format.h>

#include <algorithm>

#include "lab/ask/tag_survey.h"
#include "lab/names/node_names.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

// "cpu4" of "cpu4 scaling_max_freq".
std::string CpuOf(const std::string& path) {
    const std::string name = ShortNode(path);
    return name.substr(0, name.find(' '));
}

// The nodes in short, those of one kind on several CPUs as one: "cpu4 scaling_max_freq (to cpu6)".
std::string NodesText(const TagReport& report) {
    if (report.nodes.empty()) return "";
    const std::string first = ShortNode(report.nodes.front().path);
    if (report.nodes.size() == 1) return first;
    return fmt::format("{} (to {})", first, CpuOf(report.nodes.back().path));
}

std::string PathsText(const TagReport& report) {
    std::vector<std::string> paths;
    for (const TagReport::Node& node : report.nodes) {
        paths.push_back(node.path + (node.exists ? "" : " (missing)"));
    }
    return Join(paths);
}

// Which of the nodes the device has: the CPUs of a cluster may not all have one.
std::string ThereText(const TagReport& report) {
    const std::vector<TagReport::Node>& nodes = report.nodes;
    if (nodes.empty()) return "";
    const auto exists = [](const TagReport::Node& node) { return node.exists; };
    if (std::all_of(nodes.begin(), nodes.end(), exists)) return "yes";
    const auto first = std::find_if(nodes.begin(), nodes.end(), exists);
    return first == nodes.end() ? "no" : CpuOf(first->path);
}

std::string SettableText(const TagReport& report) {
    if (report.isControl) return "control";
    if (report.lockOpcode) return report.isWritten ? "lock and write" : "lock";
    return report.isWritten ? "write" : "-";
}

std::string BootText(const TagReport& report) {
    if (!report.boot || report.boot->empty()) return "";
    // Where the plug-in makes another unit of what the node reads.
    const std::string unit = NodeUnit(report.nodes.front().path);
    return NodeText(*report.boot, unit == UnitName(report.unit) ? "" : unit);
}

Listing Listed(const std::vector<TagReport>& tags, bool wholePaths) {
    Listing listing({{"tag", "tag"},
                     {nullptr, "name", true},
                     {"opcode", "opcode", true},
                     {nullptr, "node", true},
                     {nullptr, "there"},
                     {nullptr, "boot"},
                     {"present", "reads", false, "-"},
                     {"unit", "unit"},
                     {"set_by", "set by"},
                     {"names", nullptr},
                     {"meaning", nullptr},
                     {"nodes", nullptr},
                     {"boot", nullptr},
                     {"readable", nullptr},
                     {"settable", nullptr}});
    for (const TagReport& report : tags) {
        const std::optional<int> opcode = report.lockOpcode ? report.lockOpcode : report.opcode;
        nlohmann::json nodes = nlohmann::json::array();
        for (const TagReport::Node& node : report.nodes) {
            nodes.push_back({{"path", node.path}, {"exists", node.exists}});
        }
        listing.Add({report.tag, report.names.empty() ? "" : report.names.front(),
                     opcode ? nlohmann::json(Hex(*opcode)) : nlohmann::json(),
                     wholePaths ? PathsText(report) : NodesText(report), ThereText(report),
                     BootText(report), OrNull(report.present), UnitName(report.unit),
                     SettableText(report), report.names, report.meaning, std::move(nodes),
                     OrNull(report.boot), report.present.has_value(), report.IsSettable()});
    }
    return listing;
}

}  // namespace

void PrintTags(std::ostream& out, const std::vector<TagReport>& tags, bool wholePaths,
               const Paint& paint) {
    Listed(tags, wholePaths).ForReader().Print(out, "", paint);
    out << "\n"
           "there   which of the node's CPUs has it on this device\n"
           "boot    what the node reads after boot; reads: what the plug-in reads, - if it cannot\n"
           "set by  seen when the tag was set: a perf lock, a write of the plug-in, or nothing "
           "(-)\n"
           "Opcodes, nodes and names are the plug-in's tables; the opcode of a tag that can be set "
           "is the one\nthat its lock had. --json has every path, name and meaning.\n";
}

void PrintTagsSection(std::ostream& out, const DeviceProfile& device,
                      const std::vector<TagReport>& tags) {
    out << "\n## " << device.name << "\n\n";
    Listed(tags, false).ForMarkdown().PrintMarkdown(out);
}

nlohmann::json TagsJson(const DeviceProfile& device, const std::vector<TagReport>& tags) {
    return {{"device", device.name}, {"tags", Listed(tags, false).ForJson()}};
}

}  // namespace lab

// The tags of a device as text, as Markdown and as JSON.
#include <fmt/format.h>

#include <algorithm>

#include "lab/ask/tag_survey.h"
#include "lab/names/node_names.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

// The nodes in short, those of one kind on several CPUs as one: "cpu4 scaling_max_freq (to cpu6)".
std::string NodesText(const TagReport& report) {
    if (report.nodes.empty()) return "";
    const std::string first = ShortNode(report.nodes.front().path);
    if (report.nodes.size() == 1) return first;
    const std::string last = ShortNode(report.nodes.back().path);
    return fmt::format("{} (to {})", first, last.substr(0, last.find(' ')));
}

std::string PathsText(const TagReport& report) {
    std::string text;
    for (const TagReport::Node& node : report.nodes) {
        text += (text.empty() ? "" : ", ") + node.path + (node.exists ? "" : " (missing)");
    }
    return text;
}

// Which of the nodes the device has: the CPUs of a cluster may not all have one.
std::string ThereText(const TagReport& report) {
    size_t count = 0;
    for (const TagReport::Node& node : report.nodes) count += node.exists ? 1 : 0;
    if (report.nodes.empty()) return "";
    if (count == report.nodes.size()) return "yes";
    if (count == 0) return "no";
    for (const TagReport::Node& node : report.nodes) {
        if (node.exists) return ShortNode(node.path).substr(0, ShortNode(node.path).find(' '));
    }
    return "";
}

std::string SettableText(const TagReport& report) {
    if (report.isControl) return "control";
    if (report.lockOpcode) return report.isWritten ? "lock and write" : "lock";
    return report.isWritten ? "write" : "-";
}

std::string BootText(const TagReport& report) {
    std::string boot = report.boot.value_or("");
    std::replace(boot.begin(), boot.end(), '\t', ' ');
    // Where the plug-in makes another unit of what the node reads.
    const std::string unit = report.nodes.empty() ? "" : NodeUnit(report.nodes.front().path);
    if (!boot.empty() && !unit.empty() && unit != UnitName(report.unit)) boot += " " + unit;
    return boot;
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

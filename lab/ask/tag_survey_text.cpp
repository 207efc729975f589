// The tags of a device as text, as Markdown and as JSON.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "lab/ask/tag_survey.h"
#include "lab/names/node_names.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

std::string OpcodeText(const TagReport& report) {
    const std::optional<int> opcode = report.lockOpcode ? report.lockOpcode : report.opcode;
    return opcode ? fmt::format("0x{:08X}", static_cast<unsigned>(*opcode)) : "";
}

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

std::string PresentText(const TagReport& report) {
    if (!report.present) return "-";
    return std::to_string(*report.present);
}

std::string SettableText(const TagReport& report) {
    if (report.isControl) return "control";
    if (report.lockOpcode) return report.isWritten ? "lock and write" : "lock";
    return report.isWritten ? "write" : "-";
}

Table MakeTable(const std::vector<TagReport>& tags, bool wholePaths, bool isMarkdown) {
    Table table({"tag", "name", "opcode", "node", "there", "boot", "reads", "unit", "set by"});
    for (const TagReport& report : tags) {
        const std::string name = report.names.empty() ? "" : report.names.front();
        const std::string node = wholePaths ? PathsText(report) : NodesText(report);
        std::string boot = report.boot.value_or("");
        std::replace(boot.begin(), boot.end(), '\t', ' ');
        // Where the plug-in makes another unit of what the node reads.
        const std::string unit = report.nodes.empty() ? "" : NodeUnit(report.nodes.front().path);
        if (!boot.empty() && !unit.empty() && unit != UnitName(report.unit)) boot += " " + unit;
        table.Add({std::to_string(report.tag), isMarkdown ? Code(name) : name,
                   isMarkdown ? Code(OpcodeText(report)) : OpcodeText(report),
                   isMarkdown ? Code(node) : node, ThereText(report), boot, PresentText(report),
                   std::string(UnitName(report.unit)), SettableText(report)});
    }
    return table;
}

}  // namespace

void PrintTags(std::ostream& out, const std::vector<TagReport>& tags, bool wholePaths,
               const Paint& paint) {
    MakeTable(tags, wholePaths, false).Print(out, "", paint);
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
    MakeTable(tags, false, true).PrintMarkdown(out);
}

std::string TagsJson(const DeviceProfile& device, const std::vector<TagReport>& tags) {
    nlohmann::json json = {{"device", device.name}, {"tags", nlohmann::json::array()}};
    for (const TagReport& report : tags) {
        nlohmann::json entry = {{"tag", report.tag},
                                {"names", report.names},
                                {"meaning", report.meaning},
                                {"unit", UnitName(report.unit)},
                                {"opcode", nullptr},
                                {"nodes", nlohmann::json::array()},
                                {"boot", nullptr},
                                {"present", nullptr},
                                {"readable", report.present.has_value()},
                                {"settable", report.IsSettable()},
                                {"set_by", SettableText(report)}};
        if (const std::string opcode = OpcodeText(report); !opcode.empty()) {
            entry["opcode"] = opcode;
        }
        for (const TagReport::Node& node : report.nodes) {
            entry["nodes"].push_back({{"path", node.path}, {"exists", node.exists}});
        }
        if (report.boot) entry["boot"] = *report.boot;
        if (report.present) entry["present"] = *report.present;
        json["tags"].push_back(std::move(entry));
    }
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace lab

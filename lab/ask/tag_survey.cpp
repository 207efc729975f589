#include "lab/ask/tag_survey.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <set>

#include "base/ids.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/phone/phone.h"
#include "lab/server/inputs.h"
#include "lab/server/library.h"
#include "lab/server/server.h"
#include "loader/vocabulary_table.h"
#include "nodes/node_path_table.h"
#include "nodes/tag_opcode_table.h"

namespace lab {
namespace {

// The control type that puts limits in force, so that the plug-in writes nodes itself.
constexpr int kLimitsInForce = 2;
constexpr int kGroupMs = 1000;

// The tags that some table has on this device's layout.
std::set<int> KnownTags(const DeviceProfile& device) {
    const Layout layout = LayoutOf(device);
    std::set<int> tags;
    for (const std::string& name : TagNamesOf(layout)) tags.insert(FindTag(name, layout).value());
    for (const tarquel::TagOpcode& row : tarquel::kTagOpcodes) {
        if (FindTagOpcode(row.tag, layout)) tags.insert(row.tag);
    }
    return tags;
}

std::vector<std::string> NamesOf(int tag, Layout layout) {
    std::vector<std::string> names;
    for (const std::string& name : TagNamesOf(layout)) {
        if (FindTag(name, layout) == tag) names.push_back(name);
    }
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        const std::string name(row.name);
        const bool isNew = std::find(names.begin(), names.end(), name) == names.end();
        if (isNew && FindTag(name, layout) == tag) names.push_back(name);
    }
    return names;
}

TagReport Describe(int tag, const DeviceProfile& device, const Kernel& kernel) {
    const Layout layout = LayoutOf(device);
    TagReport report;
    report.tag = tag;
    report.names = NamesOf(tag, layout);
    if (const TagFacts* facts = FindTagFacts(tag, layout)) {
        report.meaning = facts->meaning;
        report.unit = facts->unit;
        report.bound = facts->bound;
    }
    report.opcode = FindTagOpcode(tag, layout);
    for (const std::string& path : TagNodes(tag, device)) {
        report.nodes.push_back({path, kernel.Has(path)});
        if (report.nodes.back().exists && !report.boot) report.boot = kernel.Value(path);
    }
    return report;
}

// A value that differs from what holds after boot: a ceiling at its default needs no lock.
int ProbeValue(const TagReport& report) {
    const std::optional<int64_t> boot = report.boot ? ParseNumber(*report.boot) : std::nullopt;
    if (report.bound != Bound::kCeiling || !boot || *boot < 2) return 1;
    return static_cast<int>(std::min<int64_t>(*boot / 2, std::numeric_limits<int>::max()));
}

// Sets a tag and looks at what crosses to the HAL and the kernel.
void Probe(Phone& phone, Server& server, TagReport& report) {
    SetLimits request{tarquel::kClientPower, {{report.tag, ProbeValue(report)}}};
    if (report.tag == kControlTypeTag) {
        request = {tarquel::kClientTemp, {{kControlTypeTag, ControlTypeOf(2)}}};
    } else if (report.tag == kGroupTag) {
        // A marker holds nothing by itself: it leads a group of others.
        request = {tarquel::kClientPower,
                   {{kGroupTag, kGroupMs}, {*FindTag("uclamp_fg_min", Layout::kTwoClusters), 1}}};
    }
    const std::map<std::string, int> status = server.Status();
    phone.Events().Clear();
    server.Send(request);
    for (const LockAcquire& lock : phone.Events().All<LockAcquire>()) {
        if (report.tag == kGroupTag) report.isControl = lock.durationMs == kGroupMs;
        // A ceiling may take the floor's lock with it; the tag's own is the last.
        else if (lock.returned >= 1)
            report.lockOpcode = lock.list.front();
    }
    for (const NodeAccess& access : phone.Events().All<NodeAccess>()) {
        if (access.kind != NodeAccess::Kind::kWrite || access.byHal || access.error != 0) continue;
        for (const TagReport::Node& node : report.nodes) {
            if (node.path == access.path) report.isWritten = true;
        }
    }
    if (report.tag == kControlTypeTag) report.isControl = server.Status() != status;
}

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

std::vector<TagReport> SurveyTags(const DeviceProfile& device, const std::string& library) {
    SceneFile scenes = ScenesOfClusters(device);
    Phone phone(device);
    std::vector<TagReport> reports;
    for (const int tag : KnownTags(device)) {
        reports.push_back(Describe(tag, device, phone.GetKernel()));
    }
    Library plugin(library);
    Server server(phone, plugin, scenes);
    server.Start();
    // All are read before any is set; the control type comes last, for it decides what a set does.
    for (TagReport& report : reports) report.present = server.Read(report.tag);
    server.Send(SetLimits{tarquel::kClientTemp, {{kControlTypeTag, kLimitsInForce}}});
    for (TagReport& report : reports) {
        if (report.tag != kControlTypeTag) Probe(phone, server, report);
    }
    for (TagReport& report : reports) {
        if (report.tag == kControlTypeTag) Probe(phone, server, report);
    }
    return reports;
}

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

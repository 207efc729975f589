#include "lab/ask/tag_survey.h"

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

}  // namespace lab

#include "lab/logcat/log_story.h"

#include <algorithm>
#include <climits>
#include <string_view>

#include "lab/logcat/story_teller.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"

namespace lab {

namespace {

// The CPUs through which the plug-in reaches its clusters' limits: the first ones that are online.
std::set<int> LimitedCpus(const Capture& capture) {
    constexpr std::string_view kPrefix = "/sys/devices/system/cpu/cpu";
    std::set<int> cpus;
    for (const CapturedLine& line : capture.lines) {
        const Message message = line.match.message;
        if (message != Message::kWriteNode && message != Message::kReadNode) continue;
        const std::string& path = line.match.words[0];
        const bool isLimit = path.find("/cpufreq/scaling_") != path.npos;
        if (!isLimit || path.compare(0, kPrefix.size(), kPrefix) != 0) continue;
        const std::string_view rest = std::string_view(path).substr(kPrefix.size());
        const auto cpu = ParseNumber(std::string(rest.substr(0, rest.find('/'))));
        // No profile has such a CPU: the path fits none.
        cpus.insert(cpu && *cpu <= INT_MAX ? static_cast<int>(*cpu) : INT_MAX);
    }
    return cpus;
}

struct ShippedDevice {
    std::string name;
    DeviceProfile profile;
};

std::vector<ShippedDevice> ShippedDevices() {
    std::vector<ShippedDevice> devices;
    for (const std::string& name : DeviceProfileNames()) {
        devices.push_back({name, LoadDeviceProfile(name)});
    }
    return devices;
}

}  // namespace

LogStory TellStory(const Capture& capture, const KnownNodes& nodes, const SceneFile& scenes,
                   CommandLists& lists) {
    LogStory story;
    story.detail = DetailOf(capture);
    StoryTeller teller(nodes, scenes, lists, story);
    for (const CapturedLine& line : capture.lines) teller.Add(line);
    teller.Finish();
    return story;
}

LogDetail DetailOf(const Capture& capture) {
    LogDetail detail = LogDetail::kErrors;
    for (const CapturedLine& line : capture.lines) {
        const Message message = line.match.message;
        if (message == Message::kUnknown || message == Message::kOther) continue;
        if (line.match.onlyDebug) return LogDetail::kFull;
        if (line.priority < kAndroidError) detail = LogDetail::kVersion;
    }
    return detail;
}

std::string DeviceOf(const Capture& capture) {
    // Read once for a program that asks of many captures.
    static const std::vector<ShippedDevice> shipped = ShippedDevices();
    const std::optional<Layout> layout = LayoutOf(capture);
    const std::set<int> cpus = LimitedCpus(capture);
    std::string found;
    for (const auto& [name, device] : shipped) {
        const auto isFirst = [&clusters = device.clusters](int cpu) {
            return std::any_of(clusters.begin(), clusters.end(), [cpu](const CpuCluster& cluster) {
                return cluster.firstCpu == cpu;
            });
        };
        const bool fits = (!layout || *layout == LayoutOf(device)) &&
                          std::all_of(cpus.begin(), cpus.end(), isFirst);
        if (!fits) continue;
        if (!found.empty()) return "";
        found = name;
    }
    return found;
}

std::optional<Layout> LayoutOf(const Capture& capture) {
    for (const CapturedLine& line : capture.lines) {
        if (line.match.message != Message::kTagLock && line.match.message != Message::kGroupPair) {
            continue;
        }
        const bool isGroup = line.match.message == Message::kGroupPair;
        const int tag = static_cast<int>(line.match.numbers[isGroup ? 1 : 0]);
        const int opcode = static_cast<int>(line.match.numbers[2]);
        const bool isTwo = FindTagOpcode(tag, Layout::kTwoClusters) == opcode;
        const bool isThree = FindTagOpcode(tag, Layout::kThreeClusters) == opcode;
        if (isTwo != isThree) return isTwo ? Layout::kTwoClusters : Layout::kThreeClusters;
    }
    return std::nullopt;
}

}  // namespace lab

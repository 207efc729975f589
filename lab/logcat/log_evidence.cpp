#include "lab/logcat/log_evidence.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/phone/events.h"

namespace lab {
namespace {

constexpr int kHighestCpu = 63;
constexpr std::string_view kCpuFolder = "/sys/devices/system/cpu/cpu";
constexpr std::string_view kGpuFolder = "/sys/class/kgsl/kgsl-3d0/devfreq/";

// So many values show what table a node has.
constexpr size_t kMostPaths = 64;
constexpr size_t kMostValues = 256;

// Read once for a program that asks of many captures.
const std::map<std::string, DeviceProfile>& ShippedDevices() {
    static const std::map<std::string, DeviceProfile> shipped = [] {
        std::map<std::string, DeviceProfile> devices;
        for (const std::string& name : DeviceProfileNames()) {
            devices.emplace(name, LoadDeviceProfile(name));
        }
        return devices;
    }();
    return shipped;
}

// Of a cluster's limit node its CPU.
std::optional<int> CpuOf(const std::string& path) {
    if (!path.starts_with(kCpuFolder) || path.find("/cpufreq/scaling_m") == path.npos) {
        return std::nullopt;
    }
    const std::string_view rest = std::string_view(path).substr(kCpuFolder.size());
    const auto cpu = ParseNumber(std::string(rest.substr(0, rest.find('/'))));
    // No profile has such a CPU: the path fits none.
    return cpu && *cpu <= kHighestCpu ? static_cast<int>(*cpu) : kHighestCpu + 1;
}

const CpuCluster* ClusterOf(const DeviceProfile& device, int cpu) {
    for (const CpuCluster& cluster : device.clusters) {
        if (cpu >= cluster.firstCpu && cpu <= cluster.lastCpu) return &cluster;
    }
    return nullptr;
}

// The steps that a limit node of `device` can have; empty for a node that is none.
std::vector<int64_t> StepsOf(const DeviceProfile& device, const std::string& path,
                             std::string& name) {
    if (const std::optional<int> cpu = CpuOf(path)) {
        const CpuCluster* cluster = ClusterOf(device, *cpu);
        if (cluster) name = cluster->name + " cluster";
        return cluster ? cluster->khz : std::vector<int64_t>();
    }
    if (!path.starts_with(kGpuFolder)) return {};
    name = "GPU";
    std::vector<int64_t> steps;
    for (const int64_t mhz : device.gpuMhz) steps.push_back(mhz * 1'000'000);
    return steps;
}

}  // namespace

void LogEvidence::Add(const CapturedLine& line) {
    const Message message = line.match.message;
    const bool isOurs = message != Message::kUnknown && message != Message::kOther &&
                        message != Message::kLinesLost;
    if (isOurs && line.match.onlyDebug) mDetail = LogDetail::kFull;
    if (isOurs && line.priority < kAndroidError && mDetail == LogDetail::kErrors) {
        mDetail = LogDetail::kVersion;
    }
    if (message == Message::kLinesLost) mLostLines += line.match.numbers[0];
    if (message == Message::kTagLock || message == Message::kGroupPair) AddOpcode(line.match);
    if (message == Message::kWriteNode || message == Message::kReadNode) AddNode(line);
}

void LogEvidence::AddOpcode(const MessageMatch& match) {
    if (mLayout) return;
    const int tag = static_cast<int>(match.numbers[match.message == Message::kGroupPair ? 1 : 0]);
    const int opcode = static_cast<int>(match.numbers[2]);
    const bool isTwo = FindTagOpcode(tag, Layout::kTwoClusters) == opcode;
    const bool isThree = FindTagOpcode(tag, Layout::kThreeClusters) == opcode;
    if (isTwo != isThree) mLayout = isTwo ? Layout::kTwoClusters : Layout::kThreeClusters;
}

void LogEvidence::AddNode(const CapturedLine& line) {
    const std::string& path = line.match.words[0];
    const std::optional<int> cpu = CpuOf(path);
    if (cpu) mCpus.emplace(*cpu, line.line);
    const int64_t value = line.match.numbers[1];
    const bool isLimit = cpu || path.starts_with(kGpuFolder);
    // "No limit" is no step either.
    if (!isLimit || line.match.numbers[0] <= 0 || value <= 0 || value >= INT_MAX) return;
    if (mValues.size() >= kMostPaths && !mValues.contains(path)) return;
    std::map<int64_t, Seen>& values = mValues[path];
    if (values.size() >= kMostValues && !values.contains(value)) return;
    Seen& seen = values.try_emplace(value, Seen{line.line}).first->second;
    seen.isRead = seen.isRead || line.match.message == Message::kReadNode;
}

std::vector<LogProblem> LogEvidence::Contradictions(const DeviceProfile& device) const {
    std::vector<LogProblem> found;
    const auto tell = [&](int line, std::string text) {
        found.push_back({line, line, std::move(text)});
    };
    std::map<const CpuCluster*, int> cpuOf;
    for (const auto& [cpu, line] : mCpus) {
        const CpuCluster* cluster = ClusterOf(device, cpu);
        if (!cluster) {
            tell(line, fmt::format("limits cpu{}, which {} has not", cpu, device.name));
            continue;
        }
        const auto [other, isFirst] = cpuOf.emplace(cluster, cpu);
        if (isFirst) continue;
        tell(line, fmt::format("limits cpu{} apart from cpu{}, which {} has in one cluster", cpu,
                               other->second, device.name));
    }
    for (const auto& [path, values] : mValues) {
        std::string name;
        const std::vector<int64_t> steps = StepsOf(device, path, name);
        if (steps.empty()) continue;
        std::vector<std::pair<int64_t, Seen>> strange;
        for (const auto& [value, seen] : values) {
            const bool isStep = std::find(steps.begin(), steps.end(), value) != steps.end();
            if (!isStep) strange.emplace_back(value, seen);
        }
        const auto read = std::find_if(strange.begin(), strange.end(),
                                       [](const auto& pair) { return pair.second.isRead; });
        // What the plug-in writes may lie between two steps; what the kernel says may not.
        if (strange.empty() || (read == strange.end() && strange.size() * 2 <= values.size())) {
            continue;
        }
        const auto& [value, seen] = read == strange.end() ? strange.front() : *read;
        const std::string others =
            strange.size() == 1 ? "" : fmt::format(" (and {} more values)", strange.size() - 1);
        tell(seen.line,
             fmt::format("{} {} {} here{}, which is no step of {}'s {}", ShortNode(path),
                         seen.isRead ? "reads" : "is set to", value, others, device.name, name));
    }
    return found;
}

int LogEvidence::Mismatches(const DeviceProfile& device) const {
    int count = static_cast<int>(Contradictions(device).size());
    if (mLayout && *mLayout != LayoutOf(device)) ++count;
    for (const auto& [cpu, line] : mCpus) {
        const CpuCluster* cluster = ClusterOf(device, cpu);
        if (!cluster || cluster->firstCpu != cpu) ++count;
    }
    return count;
}

LogEvidence::Nearest LogEvidence::NearestDevice() const {
    Nearest nearest;
    for (const auto& [name, device] : ShippedDevices()) {
        const int count = Mismatches(device);
        if (count == nearest.mismatches) nearest.device.clear();
        if (count < nearest.mismatches) nearest = {name, count};
    }
    return nearest;
}

}  // namespace lab

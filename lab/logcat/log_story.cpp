#include "lab/logcat/log_story.h"

#include <algorithm>
#include <string_view>

#include "lab/names/node_names.h"
#include "lab/names/text.h"

namespace lab {

namespace {

constexpr int kHighestCpu = 63;

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
    if (message == Message::kWriteNode || message == Message::kReadNode) AddPath(line.match);
}

void LogEvidence::AddOpcode(const MessageMatch& match) {
    if (mLayout) return;
    const int tag = static_cast<int>(match.numbers[match.message == Message::kGroupPair ? 1 : 0]);
    const int opcode = static_cast<int>(match.numbers[2]);
    const bool isTwo = FindTagOpcode(tag, Layout::kTwoClusters) == opcode;
    const bool isThree = FindTagOpcode(tag, Layout::kThreeClusters) == opcode;
    if (isTwo != isThree) mLayout = isTwo ? Layout::kTwoClusters : Layout::kThreeClusters;
}

// The plug-in reaches its clusters' limits through the first of their CPUs that is online.
void LogEvidence::AddPath(const MessageMatch& match) {
    constexpr std::string_view kPrefix = "/sys/devices/system/cpu/cpu";
    const std::string& path = match.words[0];
    if (!path.starts_with(kPrefix) || path.find("/cpufreq/scaling_") == path.npos) return;
    const std::string_view rest = std::string_view(path).substr(kPrefix.size());
    const auto cpu = ParseNumber(std::string(rest.substr(0, rest.find('/'))));
    // No profile has such a CPU: the path fits none.
    mCpus.insert(cpu && *cpu <= kHighestCpu ? static_cast<int>(*cpu) : kHighestCpu + 1);
}

std::string LogEvidence::Device() const {
    // Read once for a program that asks of many captures.
    static const std::vector<ShippedDevice> shipped = ShippedDevices();
    std::string found;
    for (const auto& [name, device] : shipped) {
        const auto isFirst = [&clusters = device.clusters](int cpu) {
            return std::any_of(clusters.begin(), clusters.end(), [cpu](const CpuCluster& cluster) {
                return cluster.firstCpu == cpu;
            });
        };
        const bool fits = (!mLayout || *mLayout == LayoutOf(device)) &&
                          std::all_of(mCpus.begin(), mCpus.end(), isFirst);
        if (!fits) continue;
        if (!found.empty()) return "";
        found = name;
    }
    return found;
}

}  // namespace lab

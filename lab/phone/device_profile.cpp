#include "lab/phone/device_profile.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <string_view>

#include "lab/names/text.h"
#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

namespace {

constexpr std::array<std::string_view, 3> kClusterNames = {"little", "big", "prime"};
constexpr size_t kMostClusters = 8;
constexpr int kLastCpu = 63;

// A list of at least one number, each above the one before it; below it when `isDescending`.
std::vector<int64_t> ReadTable(const YamlNode& node, const std::string& what, int64_t highest,
                               bool isDescending = false) {
    std::vector<int64_t> table;
    for (const YamlNode& item : node.AsList(what)) {
        const int64_t step = item.AsInt("a step of " + what, 1, highest);
        if (!table.empty() && (isDescending ? step >= table.back() : step <= table.back())) {
            item.Fail(what + " must be in " + (isDescending ? "descending" : "ascending") +
                      " order; " + std::to_string(step) + " follows " +
                      std::to_string(table.back()));
        }
        table.push_back(step);
    }
    if (table.empty()) node.Fail(what + " must not be empty");
    return table;
}

// "4-6" or "7".
void ReadCpus(const YamlNode& node, CpuCluster& cluster) {
    const std::string& text = node.AsText("cpus");
    const size_t dash = text.find('-');
    YamlNode part = node;
    part.scalar = text.substr(0, dash);
    cluster.firstCpu = static_cast<int>(part.AsInt("cpus (\"4-6\" or \"7\")", 0, kLastCpu));
    cluster.lastCpu = cluster.firstCpu;
    if (dash == std::string::npos) return;
    part.scalar = text.substr(dash + 1);
    cluster.lastCpu = static_cast<int>(part.AsInt("the last of cpus", cluster.firstCpu, kLastCpu));
}

// little, big and prime stand in this order, whichever of them there are.
void CheckClusterName(const YamlNode& node, const std::vector<CpuCluster>& earlier) {
    const std::string& name = node.scalar;
    const auto rank = std::find(kClusterNames.begin(), kClusterNames.end(), name);
    for (const CpuCluster& other : earlier) {
        if (other.name == name) node.Fail("there is a cluster '" + name + "' already");
        const auto others = std::find(kClusterNames.begin(), kClusterNames.end(), other.name);
        if (rank == kClusterNames.end() || others == kClusterNames.end() || others < rank) continue;
        node.Fail("the clusters little, big and prime stand in this order; '" + name +
                  "' follows '" + other.name + "'");
    }
    if (name.empty()) node.Fail("a cluster needs a name");
}

std::vector<CpuCluster> ReadClusters(const YamlNode& node) {
    std::vector<CpuCluster> clusters;
    for (const YamlNode& item : node.AsList("clusters")) {
        item.ExpectFields("a cluster", {"name", "cpus", "khz", "rtg_boost_khz"});
        if (clusters.size() == kMostClusters) item.Fail("there are eight clusters at most");
        CpuCluster cluster;
        const YamlNode& name = item.Get("name");
        cluster.name = name.AsText("name");
        CheckClusterName(name, clusters);
        const YamlNode& cpus = item.Get("cpus");
        ReadCpus(cpus, cluster);
        const int due = clusters.empty() ? 0 : clusters.back().lastCpu + 1;
        if (cluster.firstCpu != due) {
            cpus.Fail("this cluster must begin with CPU " + std::to_string(due) +
                      ": each CPU is in one cluster, without a gap");
        }
        cluster.khz = ReadTable(item.Get("khz"), "khz", kMostKhz);
        if (const YamlNode* boost = item.Find("rtg_boost_khz")) {
            cluster.rtgBoostKhz = boost->AsInt("rtg_boost_khz", 0, kMostKhz);
        }
        clusters.push_back(std::move(cluster));
    }
    if (clusters.empty()) node.Fail("there must be a cluster");
    return clusters;
}

void ReadGpu(const YamlNode& node, DeviceProfile& profile) {
    node.ExpectFields("gpu", {"mhz", "initial_mhz"});
    profile.gpuMhz = ReadTable(node.Get("mhz"), "mhz", kMostMhz, true);
    const YamlNode& initial = node.Get("initial_mhz");
    profile.gpuInitialMhz = initial.AsInt("initial_mhz", 1, kMostMhz);
    if (std::find(profile.gpuMhz.begin(), profile.gpuMhz.end(), profile.gpuInitialMhz) ==
        profile.gpuMhz.end()) {
        initial.Fail("initial_mhz must be one of the levels in mhz");
    }
}

BusMonitor ReadBus(const YamlNode& node, const std::vector<BusMonitor>& earlier) {
    node.ExpectFields("a bus", {"folder", "kind", "khz"});
    BusMonitor bus;
    const YamlNode& folder = node.Get("folder");
    bus.folder = folder.AsText("folder");
    if (bus.folder.empty() || bus.folder.starts_with('/') ||
        bus.folder.find("..") != std::string::npos) {
        folder.Fail("folder must be a path below /sys/devices/system/cpu/bus_dcvs");
    }
    for (const BusMonitor& other : earlier) {
        if (other.folder == bus.folder) folder.Fail("this folder stands here a second time");
    }
    const YamlNode& kind = node.Get("kind");
    const std::string& name = kind.AsText("kind");
    if (name != "bwmon" && name != "memlat") kind.Fail("kind must be bwmon or memlat");
    bus.isBandwidthMonitor = name == "bwmon";
    bus.khz = ReadTable(node.Get("khz"), "khz", kMostKhz);
    return bus;
}

}  // namespace

const CpuCluster* DeviceProfile::FindCluster(const std::string& clusterName) const {
    for (const CpuCluster& cluster : clusters) {
        if (cluster.name == clusterName) return &cluster;
    }
    return nullptr;
}

DeviceProfile ReadDeviceProfile(const YamlNode& root) {
    root.ExpectFields("a device profile",
                      {"name", "description", "clusters", "gpu", "buses", "properties"});
    DeviceProfile profile;
    profile.name = root.Get("name").AsText("name");
    if (const YamlNode* text = root.Find("description")) {
        profile.description = text->AsText("description");
    }
    profile.clusters = ReadClusters(root.Get("clusters"));
    ReadGpu(root.Get("gpu"), profile);
    if (const YamlNode* buses = root.Find("buses")) {
        for (const YamlNode& item : buses->AsList("buses")) {
            profile.buses.push_back(ReadBus(item, profile.buses));
        }
    }
    if (const YamlNode* properties = root.Find("properties")) {
        if (properties->kind != YamlNode::Kind::kMap) {
            properties->Fail("properties must be a map of names and values");
        }
        for (const auto& [name, value] : properties->fields) {
            profile.properties[name.scalar] = value.AsText("the property " + name.scalar);
        }
    }
    return profile;
}

bool IsProfileFile(const std::string& nameOrFile) {
    return nameOrFile == kStandardInput || nameOrFile.find_first_of("/.") != std::string::npos;
}

std::string ProfileFileOf(const std::string& nameOrFile) {
    if (IsProfileFile(nameOrFile)) return nameOrFile;
    const std::vector<std::string> names = DeviceProfileNames();
    if (std::find(names.begin(), names.end(), nameOrFile) == names.end()) {
        throw InputError(
            nameOrFile, 0, 0,
            "no such device; give one of " + Join(names) + " or the path of a profile");
    }
    return DataFolder() + "/devices/" + nameOrFile + ".yaml";
}

DeviceProfile LoadDeviceProfile(const std::string& nameOrFile) {
    return ReadDeviceProfile(LoadYamlFile(ProfileFileOf(nameOrFile)));
}

std::string DataFolder() {
    std::error_code ignored;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
    const auto installed = program.parent_path().parent_path() / "share" / "tarquel-lab";
    if (std::filesystem::is_directory(installed, ignored)) return installed.string();
    return LAB_SOURCE_DATA_FOLDER;
}

std::vector<std::string> ShippedNames(const std::string& folder, const std::string& extension) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry :
         std::filesystem::directory_iterator(DataFolder() + "/" + folder, ignored)) {
        if (entry.path().extension() == extension) names.push_back(entry.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> DeviceProfileNames() {
    return ShippedNames("devices", ".yaml");
}

}  // namespace lab

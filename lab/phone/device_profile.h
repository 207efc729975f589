// A device as data: its CPU clusters, GPU, buses and scheduler tunables, and the properties it
// boots with.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace lab {

// The device where nothing tells another.
inline constexpr char kUsualDevice[] = "sm8450";

// The highest steps that a profile may have.
inline constexpr int64_t kMostKhz = 100'000'000;
inline constexpr int64_t kMostMhz = 100'000;
inline constexpr int64_t kHzPerMhz = 1'000'000;

// A frequency monitor of a bus (bwmon, memlat): the folder of its nodes and its hardware range.
struct BusMonitor {
    std::string
        folder;  // below /sys/devices/system/cpu/bus_dcvs, e.g. "DDR/19091000.qcom,bwmon-ddr"
    std::vector<int64_t> khz;         // the steps, ascending; the ends are the hardware's
    bool isBandwidthMonitor = false;  // has sample_ms, io_percent, hist_memory, hyst_* too
};

struct CpuCluster {
    std::string name;  // "little", "big", "prime", as scene files call them, or one of its own
    int firstCpu = 0;
    int lastCpu = 0;
    std::vector<int64_t> khz;  // the frequency table, ascending
    int64_t rtgBoostKhz = 0;   // walt's default
};

struct DeviceProfile {
    std::string name;
    std::string description;
    // At least one, ascending CPU numbers from 0 without a gap. Mostly little and big, or little,
    // big and prime: what the plug-in has names for.
    std::vector<CpuCluster> clusters;
    std::vector<int64_t> gpuMhz;  // descending, as the GPU driver lists its power levels
    int64_t gpuInitialMhz = 0;
    std::vector<BusMonitor> buses;
    std::map<std::string, std::string> properties;

    // The cluster called `name`, or null.
    const CpuCluster* FindCluster(const std::string& name) const;

    // The plug-in has a layout with a prime cluster and one without.
    bool HasPrime() const { return FindCluster("prime") != nullptr; }
};

class YamlNode;

// Reads a profile from its document. Throws InputError with file, line and column.
DeviceProfile ReadDeviceProfile(const YamlNode& root);

// True for what LoadDeviceProfile takes for a path.
bool IsProfileFile(const std::string& nameOrFile);

// The file of a profile: `nameOrFile` is a path, or the name of one that ships with the lab. Throws
// InputError for a name that none has.
std::string ProfileFileOf(const std::string& nameOrFile);

// Reads a profile: `nameOrFile` is the name of one that ships with the lab ("sm8450") or the path
// of a YAML file. Throws InputError (lab/yaml/yaml_tree.h) with file, line and column.
DeviceProfile LoadDeviceProfile(const std::string& nameOrFile);

// The folder of the lab's own data (profiles, scenes, scenarios): beside the program when it is
// installed, in the source tree when it is run from the build folder.
std::string DataFolder();

// The names of the files of a kind that ship with the lab: folder "scenes", extension ".xml".
std::vector<std::string> ShippedNames(const std::string& folder, const std::string& extension);

// The names of the profiles among them.
std::vector<std::string> DeviceProfileNames();

}  // namespace lab

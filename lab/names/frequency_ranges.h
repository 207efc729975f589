// The frequencies of a device that limits act on: its clusters, the GPU and the buses' monitors.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/phone/device_profile.h"

namespace lab {

struct FrequencyRange {
    std::string name;   // "big", "gpu", "ddr bwmon"
    std::string label;  // "big, CPUs 4-6"
    bool isBus = false;
    int64_t lowKhz = 0;  // the ends of the device's table
    int64_t highKhz = 0;
    int64_t perKhz = 1;  // the unit of what the nodes read
    // What stands before "min_freq", "max_freq" and "cur_freq" in the nodes' paths, for each name
    // that they have; a cluster's first CPU comes first.
    std::vector<std::string> nodes = {};
};

std::vector<FrequencyRange> FrequencyRangesOf(const DeviceProfile& device);

}  // namespace lab

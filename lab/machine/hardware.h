// A device's frequency hardware for a virtual machine: what the chip's own mainline driver finds in
// its registers, and where the device tree says that they are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/phone/device_profile.h"

namespace lab {

// What stands in memory from `address` on, before the machine starts.
struct MemoryImage {
    uint64_t address = 0;
    std::string bytes;
};

struct Hardware {
    // To stand behind the device tree of QEMU's machine "virt" with as many CPUs as the profile
    // has.
    std::string deviceTree;
    // One page for each cluster.
    std::vector<MemoryImage> registers;
};

// Throws std::runtime_error for frequencies that such hardware cannot have: a cluster's are 40
// multiples of 19200 kHz at most.
Hardware MakeHardware(const DeviceProfile& profile);

}  // namespace lab

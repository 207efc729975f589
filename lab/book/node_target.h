// The kernel node that a question is about, found by any of the names that people have for it.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/hal/opcode_drives.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/kernel.h"

namespace lab {

struct NodeTarget {
    std::string path;  // of a cluster's first CPU where several CPUs share the node
    std::vector<std::string> sharedBy;  // its other names by CPU
    std::vector<int> tags;              // those whose node it is on this device, ascending
    std::set<int> opcodes;              // those that drive it

    bool HasTag(int tag) const;

    // How `opcode`, one of `opcodes`, drives the node.
    Drive DriveOf(int opcode, const DeviceProfile& device, const Kernel& kernel) const;
};

// The node called `name`: a path or the end of one, a short form ("cpu4 scaling_max_freq"), the
// name or number of a tag, the key or number of an opcode.
//   arranged  paths that a scenario creates later; found by their whole path
// Throws std::runtime_error that names what is near, or all that the name may mean.
NodeTarget FindNode(const std::string& name, const DeviceProfile& device, const Kernel& kernel,
                    const std::vector<std::string>& arranged);

}  // namespace lab

// Which nodes a perf-HAL opcode stands for on a device, and in which unit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/phone/kernel.h"

namespace lab {

// One node that an opcode drives.
struct Drive {
    // Which lock counts where several hold the resource.
    enum class Winner : uint8_t { kHighest, kLowest, kNewest };
    enum class Unit : uint8_t { kAsIs, kCpuMhz, kGpuMhz };

    std::string path;
    // Which number of a node with several; none: the node has one.
    std::optional<size_t> entry;
    Winner winner = Winner::kNewest;
    Unit unit = Unit::kAsIs;
    Kernel::Writer writer = Kernel::Writer::kHal;
    // A node that counts: written when taken, and with the opposite sign when let go.
    bool isCounted = false;

    bool operator==(const Drive&) const = default;
};

// The cluster whose first CPU's folder the path is below, or null.
const CpuCluster* ClusterOfPath(const std::string& path, const DeviceProfile& profile);

// The nodes that `opcode` drives on the device, in the order in which they are written; none for
// an opcode that stands for nothing there. Nodes are named by a cluster's first CPU.
//
// Opcodes of one cluster follow the device: "big" is the second cluster, "prime" the third.
std::vector<Drive> DrivesOf(uint32_t opcode, const DeviceProfile& profile);

// A lock's value in the unit of the node. A CPU frequency in MHz becomes a step of the cluster's
// table: a minimum the first one that reaches it, a maximum the last one that does not exceed it,
// the table's end where there is none. MHz are kHz cut to thousands: 1785 reaches 1785600.
int64_t ToNodeUnit(const Drive& drive, int value, const DeviceProfile& profile);

}  // namespace lab

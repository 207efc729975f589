// The frequencies that a resource of a device can have.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/hal/opcode_drives.h"
#include "lab/phone/device_profile.h"

namespace lab {

// CPU and bus frequencies are kHz, the GPU's MHz.
struct StepTable {
    std::string owner;           // "sm8450's big cluster"
    std::vector<int64_t> steps;  // ascending
    bool isRange = false;        // two ends, whatever lies between

    bool Has(int64_t value) const;

    // The lowest step that reaches `value` (the highest one for a value beyond it) and the highest
    // one that does not exceed it (the lowest one for a value below it).
    int64_t AtLeast(int64_t value) const;
    int64_t AtMost(int64_t value) const;

    // The step that is closest to `value`, of two the lower one.
    int64_t Nearest(int64_t value) const;
};

// The table of a cluster, "little", "big" or "prime"; nothing for one that the device lacks.
std::optional<StepTable> ClusterSteps(const DeviceProfile& device, const std::string& cluster);

StepTable GpuSteps(const DeviceProfile& device);

// The table of what `drive` sets on the device: a scaling limit, a GPU limit, a bus monitor's end.
// Nothing for a node that holds no frequency, or holds any.
std::optional<StepTable> StepsOf(const Drive& drive, const DeviceProfile& device);

}  // namespace lab

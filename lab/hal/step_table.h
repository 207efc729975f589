// The frequencies that a resource of a device can have.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
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

// A floor or ceiling that somebody asks for.
struct AskedFrequency {
    std::string name;       // "big_max"
    const char* kind;       // what has this name: "key", "tag"
    int64_t value = 0;      // in the unit of the table
    std::string_view unit;  // "kHz"
    bool isFloor = false;
};

// What a frequency outside the table comes to, and what to write instead.
struct RangeFault {
    std::string where;  // "big_max = 1651 kHz is below the bottom of sm8450's big cluster, 633600"
    std::string outcome;  // "it becomes that"
    std::string advice;
    bool isOtherUnit = false;  // it fits the table in another unit, as MHz where kHz are meant
};

// Nothing for a frequency between the ends of the table.
std::optional<RangeFault> FindRangeFault(const StepTable& table, const AskedFrequency& asked);

// The table of a cluster, "little", "big" or "prime"; nothing for one that the device lacks.
std::optional<StepTable> ClusterSteps(const DeviceProfile& device, const std::string& cluster);

StepTable GpuSteps(const DeviceProfile& device);

// The same in Hz, as tags take it.
StepTable GpuStepsHz(const DeviceProfile& device);

// The table of what `drive` sets on the device: a scaling limit, a GPU limit, a bus monitor's end.
// Nothing for a node that holds no frequency, or holds any.
std::optional<StepTable> StepsOf(const Drive& drive, const DeviceProfile& device);

}  // namespace lab

// Faults of the phone as a scenario names them: at its head, and in the steps that inject and lift
// them.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/faults.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

class Phone;

// What of the HAL is wrong.
struct HalFault {
    HalLibrary library = HalLibrary::kWhole;
    int refusals = 0;  // of the next locks; kRefuseAlways until lifted
    int result = -1;   // of a refused one
    int slowMs = 0;
};
inline constexpr int kRefuseAlways = 1'000'000'000;

struct TimerFault {
    bool failsToCreate = false;
    bool failsToSet = false;
};

// Injects what is set and leaves the rest as it is.
struct ArrangeFaults {
    bool liftsNodes = false;  // first
    // By path, or by the tag whose nodes they are; none lifts the node's fault.
    std::vector<std::pair<YamlNode, std::optional<NodeFault>>> nodes;
    std::optional<HalFault> hal;
    std::optional<TimerFault> timer;
    std::optional<std::vector<std::string>> properties;  // that are missing now, and no others
};

// Reads the value of a `faults` field; `text` gets it in words. Throws InputError.
ArrangeFaults ReadFaults(const YamlNode& node, std::string& text);

// Reads the HAL's part alone.
HalFault ReadHalFault(const YamlNode& node, std::string& text);

// Has the faults befall `phone`. Throws InputError for a tag that the device's layout does not
// have.
void Inject(const ArrangeFaults& faults, Layout layout, const DeviceProfile& device, Phone& phone);

}  // namespace lab

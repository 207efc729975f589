// The nodes of a device, as the reader of a log asks for them.
#pragma once

#include <map>
#include <string>
#include <unordered_set>

#include "lab/phone/device_profile.h"

namespace lab {

struct KnownNodes {
    explicit KnownNodes(const DeviceProfile& device);

    std::map<std::string, int> tagOf;       // node -> the first tag that reaches it
    std::unordered_set<std::string> names;  // of every node that the device has
};

}  // namespace lab

// What a scenario asks for and its author would regret.
#pragma once

#include <string>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/server/scenario.h"

namespace lab {

// Limits of a frequency in another unit than their tag takes, as MHz where kHz are meant, each once
// as "FILE:LINE: where it lies; what was meant".
//   layout  of the scene file with which the scenario is played
std::vector<std::string> FindUnitSlips(const std::vector<Step>& steps, const std::string& file,
                                       const DeviceProfile& device, Layout layout);

}  // namespace lab

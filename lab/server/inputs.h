// The files that a command is given by path or by the name of one that ships with the lab.
#pragma once

#include <string>

#include "lab/phone/device_profile.h"
#include "lab/server/scenario.h"

namespace lab {

// `name` as a file, or as a scenario or scene file that ships with the lab ("first_seconds",
// "sm8450"). Throws InputError that suggests the nearest shipped name when there is neither.
std::string FindScenarioFile(const std::string& name);
std::string FindSceneFile(const std::string& name);

// What the user said in place of the scenario's own words; empty where nothing was said.
struct Instead {
    std::string device;
    std::string scenes;
};

// The device's profile that the user or else the scenario names by a file, which is looked for
// beside the scenario first; empty for a shipped device.
std::string DeviceFileOf(const Instead& instead, const ScenarioHead& head);

// The device on which a scenario is played: the user's, else the scenario's own. Throws InputError
// that names the place in the scenario.
DeviceProfile DeviceOfScenario(const Instead& instead, const ScenarioHead& head);

// The scene file with which a scenario is played on `device`: the user's, else the scenario's own
// (looked for beside it first) as long as the device is its own too, else the device's.
std::string ScenesOfScenario(const Instead& instead, const ScenarioHead& head,
                             const DeviceProfile& device);

// A scene file that says no more than which CPUs form the clusters of `device`: what the plug-in
// needs to be started without the scenes of a product.
SceneFile ScenesOfClusters(const DeviceProfile& device);

}  // namespace lab

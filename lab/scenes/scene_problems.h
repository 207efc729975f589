// What is wrong with a scene file that the plug-in has read, named where it stands.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/phone/events.h"
#include "lab/scenes/scene_file.h"

namespace lab {

// Finds the place of each error line that the plug-in logged while it read `scenes`, and the
// commands that it dropped without a word.
//   errors    the loader's error lines, in order
//   accepted  the commands that it made actions for
std::vector<SceneProblem> FindSceneProblems(const SceneFile& scenes,
                                            const std::vector<std::string>& errors,
                                            const std::set<int>& accepted);

// Whether "qcom_cpu_info" describes the clusters that `device` has: the plug-in believes it.
std::vector<SceneProblem> FindClusterProblems(const SceneFile& scenes, const DeviceProfile& device);

// "FILE:LINE:COLUMN: message".
std::string ProblemText(const SceneFile& scenes, const SceneProblem& problem);

// True for an element that describes the device and makes no action.
bool IsDescription(const SceneElement& element);

}  // namespace lab

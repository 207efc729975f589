// What is wrong with a scene file to the plug-in and to a device, named where it stands.
#pragma once

#include <string>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/scenes/scene_file.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {

// What the plug-in says against the file and refuses without a word, each command up to what makes
// it give up; in the order of the commands. Throws InputError for a file on which it fails.
std::vector<SceneProblem> FindSceneProblems(const SceneFile& scenes);

// The same of one of its commands.
std::vector<SceneProblem> FindSceneProblems(const SceneFile& scenes, const CommandMeaning& command);

// Whether "qcom_cpu_info" describes the clusters that `device` has: the plug-in believes it.
std::vector<SceneProblem> FindClusterProblems(const SceneFile& scenes, const DeviceProfile& device);

struct DeviceOfFile {
    DeviceProfile profile;
    const char* why;         // a scene file is one for it, in words
    bool isAssumed = false;  // for want of another
};

// The device `named` (a shipped name or a file); where nobody names one, the file's namesake, else
// the first shipped one whose clusters the file describes, else sm8450.
DeviceOfFile DeviceOfScenes(const SceneFile& scenes, const std::string& named);

// A frequency that is none, and that the plug-in does not speak of.
std::string FrequencyText(const CommandMeaning& command, const LoaderRemark& remark);

// What the plug-in does with clusters that it has no name for and without those that it has, in
// words; none for a device with little and big, or little, big and prime.
std::vector<std::string> ClusterNotes(const DeviceProfile& device);

// "FILE:LINE:COLUMN: message".
std::string ProblemText(const SceneFile& scenes, const SceneProblem& problem);

}  // namespace lab

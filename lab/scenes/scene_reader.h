// From the text of a scene file to its commands, mistake by mistake.
#pragma once

#include <string>
#include <vector>

#include "lab/scenes/scene_file.h"

namespace lab {

// The commands in document order; every mistake of form is added to `problems`, in the order of
// their places. Reads on behind every mistake that leaves something to read: of a mistaken command
// what could be read, those without a usable id have kNoId, an id or a name may stand twice. A text
// that stops being XML is read up to the command in which it does.
std::vector<SceneCommand> ReadScenes(const std::string& text, std::vector<SceneProblem>& problems);

}  // namespace lab

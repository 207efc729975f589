// From the text of a scene file to its commands, mistake by mistake.
#pragma once

#include <string>
#include <vector>

#include "lab/scenes/scene_file.h"

namespace lab {

struct SceneReading {
    // In document order. Of a mistaken command what could be read: those without a usable id have
    // kNoId, an id or a name may stand twice.
    std::vector<SceneCommand> commands;
    // Every mistake of form, in the order of their places.
    std::vector<SceneProblem> problems;
};

// Reads on behind every mistake that leaves something to read. A text that stops being XML is read
// up to the command in which it does.
SceneReading ReadScenes(const std::string& text);

}  // namespace lab

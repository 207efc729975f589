// A command's meaning in words.
#pragma once

#include "lab/ask/scene_explanation.h"

namespace lab {

// The command's elements with what they ask for, the keys that count for nothing, and the
// refusals. Nothing is run: nodes, thermal lifts and what the plug-in says then are left empty.
ExplainedCommand TranslateCommand(const SceneFile& scenes, const CommandMeaning& meaning);

}  // namespace lab

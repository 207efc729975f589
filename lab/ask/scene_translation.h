// What the plug-in's loader made of a command, beside the words of the scene file.
#pragma once

#include "lab/ask/scene_explanation.h"
#include "lab/server/server.h"

namespace lab {

// The command's elements with what their actions ask for, the keys that count for nothing, and the
// refusals. Nothing is run: nodes, thermal lifts and what the plug-in says then are left empty.
//   server  one that has started with `scenes`
ExplainedCommand TranslateCommand(const SceneFile& scenes, const SceneCommand& command,
                                  const Server& server);

}  // namespace lab

// Holds the plug-in's loader against what the lab says it makes of a scene file.
#pragma once

#include <string>

#include "lab/phone/phone.h"
#include "lab/scenes/scene_file.h"
#include "lab/server/library.h"

namespace fuzz {

// Has the loader read `scenes`, whose ids are unique. Returns where its log lines, the commands
// that it accepts or what it makes of one differ from their meaning; empty when nothing does.
std::string FindDisagreement(lab::SceneFile& scenes, lab::Phone& phone, lab::Library& library);

}  // namespace fuzz

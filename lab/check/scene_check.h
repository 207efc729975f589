// Everything that is wrong with a scene file, or that its author would regret: the mistakes of
// form, the refusals of the plug-in's own loader, and what the plug-in accepts without doing what
// the file seems to say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lab/scenes/scene_file.h"

namespace lab {

enum class Severity : uint8_t {
    kNote,     // worth knowing, nothing to mend
    kWarning,  // accepted, but not what the author seems to mean
    kError,    // refused, or sure to fail
};

struct Finding {
    Severity severity = Severity::kWarning;
    std::string rule;     // a short name, "frequency-step"
    Place place;          // line 0: of the file as a whole
    std::string where;    // "touch (4098), <boost>"; may be empty
    std::string message;  // what is wrong
    std::string advice;   // what to do; may be empty
    std::string plugin;   // the plug-in's own words; may be empty
};

struct SceneCheck {
    std::string file;
    std::string device;
    std::string whyDevice;          // why the file is checked for this device
    std::vector<Finding> findings;  // errors first, then the others, each by place
    size_t commands = 0;
    size_t keys = 0;
    std::vector<std::string> unchecked;  // tunables whose nodes the lab does not know

    size_t Count(Severity severity) const;
};

// Checks one scene file. No Phone may be alive.
//   device  name or file of a profile; empty: the shipped device that the file's own name or its
//           clusters tell
// Throws InputError for a scene file or profile that cannot be read.
SceneCheck CheckSceneFile(const std::string& file, const std::string& device);

// As CheckSceneFile, of a text that is not, or not yet, in `file`.
SceneCheck CheckSceneText(const std::string& text, const std::string& file,
                          const std::string& device);

}  // namespace lab

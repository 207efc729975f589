// What the scenes of a file do, in words that tell two files apart.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/scenes/scene_file.h"

namespace lab {

// One thing that a scene does: "big floor", "1651 MHz".
struct Effect {
    std::string what;
    std::string value;

    bool operator==(const Effect&) const = default;
    bool operator<(const Effect& other) const {
        return std::tie(what, value) < std::tie(other.what, other.value);
    }
};
using Effects = std::vector<Effect>;  // each `what` once

struct ElementEffects {
    size_t position = 0;  // among those of its command, from 1
    Effects effects;
};

// What the user of a scene gets, an element at a time.
struct SceneEffects {
    std::optional<int> id;
    std::string name;
    std::string label;
    Effects whole;  // of the command as a whole
    std::vector<ElementEffects> elements;
};

// The effect that says how long; it is told without its name.
inline constexpr char kLasts[] = "lasts";

// What the user of each scene gets from what the plug-in makes of it; first what describes the
// device, then the scenes by id.
//   device  null: values as the HAL gets them; else as that device's steps
std::vector<SceneEffects> EffectsOf(const SceneFile& scenes, const DeviceProfile* device);

}  // namespace lab

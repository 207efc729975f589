// What two scene files do differently, in the words of a release note.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/names/paint.h"
#include "lab/names/table.h"
#include "lab/phone/device_profile.h"
#include "lab/scenes/scene_file.h"

namespace lab {

// One thing that a scene's user gets, or does not.
struct SceneChange {
    std::optional<size_t> element;      // from 1; none: of the whole scene, or of its one element
    std::string what;                   // "big floor", "lasts"
    std::optional<std::string> before;  // "1651 MHz"; none: it was not there
    std::optional<std::string> after;

    // "big floor 1651 -> 2112 MHz".
    std::string Text() const;
};

struct SceneDifference {
    enum class Kind { kChanged, kNew, kGone };

    Kind kind = Kind::kChanged;
    std::optional<int> id;             // none: of what describes the device
    std::string label;                 // "game_start (12289)", "frequency level 3"
    std::vector<SceneChange> changes;  // of a new or gone scene all that it does

    // "game_start (12289): big floor 1651 -> 2112 MHz, 4000 -> 9000 ms".
    std::string Text() const;
};

struct SceneComparison {
    std::string before;
    std::string after;
    std::string device;  // whose steps the values are told in; empty: as the HAL gets them
    size_t same = 0;     // scenes that do the same in both
    std::vector<SceneDifference> differences;  // the device's description, then by id

    size_t Count(SceneDifference::Kind kind) const;
};

// Compares what the plug-in makes of the files' scenes: names, order and spelling are no
// difference, nor are keys that count for nothing.
//   device  null: values as the HAL gets them; else as that device's steps
SceneComparison CompareScenes(const SceneFile& before, const SceneFile& after,
                              const DeviceProfile* device);

void PrintComparison(std::ostream& out, const SceneComparison& comparison, const Paint& paint);

// As JSON, with everything that there is to tell.
nlohmann::json ComparisonJson(const SceneComparison& comparison);

}  // namespace lab

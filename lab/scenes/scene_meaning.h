// What the keys of an element mean to the plug-in's loader, in its own order.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/scenes/scene_file.h"

namespace lab {

// What the loader keeps of an element, and what one call of the HAL takes of that.
inline constexpr size_t kMostPairs = 35;
inline constexpr size_t kMostLockPairs = 32;

struct KeyMeaning {
    enum class Kind { kHead, kOpcode, kTag, kUnknown };

    const SceneKey* key = nullptr;
    Kind kind = Kind::kUnknown;
    int code = 0;               // opcode or tag
    std::optional<int> number;  // the value, when it is a number of 32 bits
    size_t first = 0;           // index of the first key with this code or head name
};

struct ElementMeaning {
    const SceneCommand* command = nullptr;
    const SceneElement* element = nullptr;
    std::vector<KeyMeaning> keys;  // in document order
    int durationMs = 0;            // what the last "duration_ms" says
    bool isLongScene = false;      // goes to the frequency manager when it runs

    // The last key called `name`, which is the one that counts for a head key; null without one.
    const KeyMeaning* FindHead(std::string_view name) const;

    // The key that counts for an opcode or tag; null without one.
    const KeyMeaning* FindCode(int code) const;

    // The tunables that the loader keeps, by ascending code. Behind the first kMostPairs they are
    // cut; those are in the list all the same.
    std::vector<const KeyMeaning*> Pairs() const;
};

// What `element` means with the clusters of `layout` described.
ElementMeaning MeaningOf(const SceneCommand& command, const SceneElement& element, Layout layout);

// The opcode of a key in force, nothing for any other name.
std::optional<int> OpcodeOfKey(std::string_view name);

// True for what the loader takes as a number: digits, perhaps behind a minus sign.
bool IsLoaderNumber(const std::string& value);

// "touch (4098), <boost>".
std::string WhereOf(const SceneCommand& command, const SceneElement& element);

}  // namespace lab

// The vocabulary of scene files as the loader's tables have it: every key, what it stands for and
// in which unit its value is.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "lab/names/paint.h"
#include "lab/names/tag_names.h"

namespace lab {

// A tunable's key.
struct TunableKey {
    std::string_view key;
    int opcode = 0;                     // with the newer bus monitors: bus layout 1
    std::optional<int> otherBusOpcode;  // in the other bus layout; none: it lacks the key
    std::string_view family;
    Unit unit = Unit::kNone;      // in a scene file
    Unit lockUnit = Unit::kNone;  // in a lock
};

// A key that describes an element or the device.
struct PlainKey {
    std::string_view key;
    std::string_view unit;
    std::string_view meaning;
};

// A key of a long scene.
struct LongSceneKey {
    std::string_view key;
    std::optional<int> tagTwoClusters;
    std::optional<int> tagThreeClusters;
    Unit unit = Unit::kNone;
};

struct VocabularyList {
    std::vector<TunableKey> tunables;   // in the loader's order: by family
    std::vector<PlainKey> element;      // of every element
    std::vector<PlainKey> cpuInfo;      // of <qcom_cpu_info>
    std::vector<PlainKey> level;        // of <freq_level_infoN>
    std::vector<PlainKey> interactive;  // of an interactive-governor element; the meaning is a node
    std::vector<LongSceneKey> longScene;
};

VocabularyList ListVocabulary();

void PrintVocabulary(std::ostream& out, const VocabularyList& list, const Paint& paint);

// A page of documentation.
void PrintVocabularyPage(std::ostream& out, const VocabularyList& list);

// As JSON, with everything that there is to tell.
std::string VocabularyJson(const VocabularyList& list);

}  // namespace lab

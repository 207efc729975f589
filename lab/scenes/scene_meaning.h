// What the plug-in's loader makes of a scene file, by its own tables and in its own order: of each
// key, element and command, and what it says against them. A test holds the loader against it.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/scenes/scene_file.h"
#include "loader/element_keys.h"

namespace lab {

// What the loader keeps of an element, and what one call of the HAL takes of that.
inline constexpr size_t kMostPairs = 35;
inline constexpr size_t kMostLockPairs = 32;

inline constexpr int kHighestLevel = 9;  // of the frequency levels, from 0

// What a tunable that is a frequency may be; the HAL takes it in MHz.
inline constexpr int kLowestKhz = 1000;
inline constexpr int kHighestKhz = 65534999;

// A cluster that the plug-in has a name for, and the keys that speak of it.
struct ClusterKeys {
    const char* name;
    std::string_view cpus;     // of <qcom_cpu_info>
    std::string_view ceiling;  // of a frequency level
};
inline constexpr ClusterKeys kClusterKeys[] = {
    {"little", tarquel::keys::kLittleCpus, tarquel::keys::kLittleMaxFreq},
    {"big", tarquel::keys::kBigCpus, tarquel::keys::kBigMaxFreq},
    {"prime", tarquel::keys::kPrimeCpus, tarquel::keys::kPrimeMaxFreq},
};

// The opcode of a tunable's key; nothing for a key that names none.
std::optional<int> FindKeyOpcode(std::string_view key);

// A tunable's value as its lock gets it.
int HalValueOfKey(int opcode, const std::string& value);

// ms; 0 without the key: until released.
int DurationOf(const SceneElement& element);

// The highest thermal level under which the element breaks through; -1 without the key.
int BoostLimitLevelOf(const SceneElement& element);

// True for a command whose keys name limits by tag: the id of a long scene, and no duration.
bool IsLongScene(const SceneCommand& command);

// How many numbers of "first-last" a cluster's value has, as sscanf counts: 2 for a range of CPUs.
int CpuRangeNumbers(const std::string& value);

// True for a command that describes the clusters, a third one among them.
bool NamesPrimeCluster(const SceneCommand& command);

struct KeyMeaning {
    enum class Kind {
        kHead,    // describes the element
        kOpcode,  // a tunable of a lock
        kTag,     // a limit of a long scene
        kText,    // taken as it is written: of the interactive governor, of clusters and levels
        kUnknown,
    };

    const SceneKey* key = nullptr;
    Kind kind = Kind::kUnknown;
    int code = 0;               // opcode or tag
    int value = 0;              // what the loader reads: some number for a text that is none
    std::optional<int> number;  // the same, where the text is a number of 32 bits
    size_t first = 0;           // index of the first key with this code or name
    bool isCut = false;         // beyond those that an element keeps

    // True when the loader takes the text for a number: digits, perhaps behind a minus sign.
    bool IsRead() const;

    bool IsTunable() const { return kind == Kind::kOpcode || kind == Kind::kTag; }

    // The tunable's value as the loader hands it on: a lock's frequencies in MHz.
    int HandedOn() const;
};

// What the loader says against a scene, or refuses without a word.
struct LoaderRemark {
    enum class Kind {
        kUnknownKey,
        kNumber,     // the value is no number
        kFrequency,  // out of the range of frequencies
        kEndless,    // an element until released beside others
        kRepeated,   // a tunable that stands for the same as an earlier one
        kTooMany,    // tunables are cut, this one first
        kNoValue,    // of a description
        kCpuRange,
        kIsolation,
        kLevelNumber,  // a level that is not 0 to 9
        kLevelName,    // no number at all: the loader fails on the whole file
    };

    Kind kind;
    bool refuses = false;           // the command; what follows in it is not read
    size_t element = 0;             // its index in the command
    const SceneKey* key = nullptr;  // null: the element as a whole
    std::string words = {};         // its line in the log; empty: it says nothing
};

struct ElementMeaning {
    const SceneCommand* command = nullptr;
    const SceneElement* element = nullptr;
    std::vector<KeyMeaning> keys;  // in document order
    int durationMs = 0;            // what the last "duration_ms" says
    bool isLongScene = false;      // goes to the frequency manager when it runs

    // The last key called `name`, which is the one that counts for a head key; null without one.
    const KeyMeaning* FindHead(std::string_view name) const;

    // The number of that key, `fallback` without one.
    int HeadValue(std::string_view name, int fallback) const;

    // What counts of the tunables, in the order in which the loader hands them on: by ascending
    // code, those of the interactive governor by name. Behind the first kMostPairs they are cut;
    // those are in the list all the same.
    std::vector<const KeyMeaning*> Pairs() const;

    // Those that are not cut.
    std::vector<const KeyMeaning*> Kept() const;
};

struct CommandMeaning {
    enum class Kind : uint8_t { kAction, kLongScene, kInteractive, kDescription };

    const SceneCommand* command = nullptr;
    Kind kind = Kind::kAction;
    bool namesTags = false;  // a cluster description before it gives tags their names
    std::vector<ElementMeaning> elements;
    std::vector<LoaderRemark> remarks;  // in the order in which the loader comes upon them

    // True when the loader makes nothing of the command; a description is never refused.
    bool IsRefused() const;

    // What the loader says before it gives the command up, or all when it does not.
    size_t RemarksSaid() const;

    // The number of a head key that counts for the whole command: the last one of its elements.
    std::optional<int> FindNumber(std::string_view name) const;

    Place PlaceOf(const LoaderRemark& remark) const;
};

// The meaning of a file's commands, each worked out when it is asked for.
class SceneMeaning {
  public:
    explicit SceneMeaning(const SceneFile& scenes);

    // Of a command of the file, to which the result points.
    CommandMeaning Of(const SceneCommand& command) const;

  private:
    // The clusters that are known behind a command which describes some.
    struct Clusters {
        int id;
        Layout layout;
    };

    std::vector<Clusters> mClusters;  // by ascending id
};

// True for a command that describes the device and makes no action: its clusters, or a level.
bool IsDescription(const SceneCommand& command);

// True for the name of an element that describes the device as the first one of its command.
bool IsDescription(const SceneElement& element);

bool DescribesClusters(const SceneCommand& command);

// The level that an element <freq_level_infoN> names; nothing when it names none.
std::optional<int> LevelOf(const SceneElement& element);

// The eight hexadecimal digits of "boost_limit_level": 0, a frequency level for each thermal one,
// 0, 0, and the highest thermal level.
std::array<int, 8> LevelDigits(int value);

// "command touch (4098), <boost>".
std::string WhereOf(const SceneCommand& command, const SceneElement& element);

}  // namespace lab

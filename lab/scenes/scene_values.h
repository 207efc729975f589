// What the keys and values of a scene file stand for, by the loader's own tables.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "lab/scenes/scene_file.h"
#include "loader/element_keys.h"

namespace lab {

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

}  // namespace lab

#include "lab/scenes/scene_problems.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "lab/scenes/scene_meaning.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

constexpr int kLowestKhz = 1000;
constexpr int kHighestKhz = 65534999;

bool IsFrequency(int32_t opcode) {
    return std::find(tarquel::kFrequencyOpcodes.begin(), tarquel::kFrequencyOpcodes.end(),
                     opcode) != tarquel::kFrequencyOpcodes.end();
}

bool IsCpuRange(const std::string& value) {
    int first = 0;
    int last = 0;
    return std::sscanf(value.c_str(), "%d-%d", &first, &last) == 2;
}

// A key with the element and command around it.
struct KeyAt {
    const SceneCommand* command;
    const SceneElement* element;
    const SceneKey* key;
};

// Finds places for the plug-in's messages, which come in the order of the commands: the search for
// a message that names no command goes on behind the place of the one before.
class Finder {
  public:
    explicit Finder(const SceneFile& scenes) : mScenes(scenes) {
        for (const SceneCommand& command : scenes.Commands()) {
            if (command.interactive) continue;
            for (const SceneElement& element : command.elements) {
                for (const SceneKey& key : element.keys)
                    mKeys.push_back({&command, &element, &key});
            }
        }
    }

    Place Find(const std::string& message) {
        if (const size_t at = message.find("cmdId is "); at != std::string::npos) {
            return FindNamed(message, std::atoi(message.c_str() + at + 9));
        }
        if (message.find("multi-duration") != std::string::npos) return FindRepeated(message);
        if (message.find("too many elements") != std::string::npos) return FindTooLong();
        if (message.find("isolation") != std::string::npos) {
            return FindNext([](const KeyAt& at) {
                return at.element->name == "qcom_cpu_info" && at.key->name == "isolation" &&
                       !IsLoaderNumber(at.key->value);
            });
        }
        if (message.find("cpu node info") != std::string::npos) {
            return FindNext([](const KeyAt& at) {
                return at.element->name == "qcom_cpu_info" &&
                       at.key->name.find("_cpu_num") != std::string::npos &&
                       !IsCpuRange(at.key->value);
            });
        }
        if (message.find("ParserCpuInfo") != std::string::npos) {
            return FindNext([](const KeyAt& at) {
                return at.element->name == "qcom_cpu_info" && at.key->value.empty();
            });
        }
        if (message.find("level") != std::string::npos ||
            message.find("FreqLevelInfo") != std::string::npos) {
            return FindNext([](const KeyAt& at) {
                const std::string& name = at.element->name;
                return name.rfind("freq_level_info", 0) == 0 &&
                       (at.key->value.empty() || name.size() != 16);
            });
        }
        return {};
    }

  private:
    template <typename Test>
    Place FindNext(Test test) {
        for (; mNext < mKeys.size(); ++mNext) {
            if (test(mKeys[mNext])) return mKeys[mNext++].key->place;
        }
        return {};
    }

    Place FindNamed(const std::string& message, int id) const {
        const SceneCommand* command = mScenes.Find(id);
        if (!command) return {};
        if (message.find("multi-action") != std::string::npos) return EndlessPlace(*command);
        const size_t at = message.rfind("element is ");
        if (at == std::string::npos) return command->place;
        const std::string name = message.substr(at + 11);
        const bool isValue = message.find("xml element is invalid") != std::string::npos;
        for (const SceneElement& element : command->elements) {
            for (const SceneKey& key : element.keys) {
                if (key.name == name && (!isValue || !IsLoaderNumber(key.value))) return key.place;
            }
        }
        return command->place;
    }

    // Where an element that lasts until released says so, or should say something else.
    static Place EndlessPlace(const SceneCommand& command) {
        for (const SceneElement& element : command.elements) {
            const SceneKey* duration = nullptr;
            for (const SceneKey& key : element.keys) {
                if (key.name == "duration_ms") duration = &key;
            }
            if (!duration) return element.place;
            if (std::atoi(duration->value.c_str()) == 0) return duration->place;
        }
        return command.place;
    }

    // The message has the value kept and the one dropped, "(3, 4)".
    Place FindRepeated(const std::string& message) {
        int kept = 0;
        int dropped = 0;
        const size_t values = message.rfind('(');
        if (values != std::string::npos) {
            std::sscanf(message.c_str() + values, "(%d, %d)", &kept, &dropped);
        }
        return FindNext([kept, dropped](const KeyAt& at) {
            const std::optional<int> opcode = OpcodeOfKey(at.key->name);
            if (!opcode || std::atoi(at.key->value.c_str()) != dropped) return false;
            for (const SceneKey& earlier : at.element->keys) {
                if (&earlier == at.key) return false;
                if (OpcodeOfKey(earlier.name) == opcode) {
                    return std::atoi(earlier.value.c_str()) == kept;
                }
            }
            return false;
        });
    }

    // The first key that is cut: the smallest opcode behind those that are kept.
    Place FindTooLong() {
        return FindNext([](const KeyAt& at) {
            std::set<int> opcodes;
            for (const SceneKey& key : at.element->keys) {
                const std::optional<int> opcode = OpcodeOfKey(key.name);
                if (opcode) opcodes.insert(*opcode);
            }
            return opcodes.size() > kMostPairs &&
                   OpcodeOfKey(at.key->name) == *std::next(opcodes.begin(), kMostPairs);
        });
    }

    const SceneFile& mScenes;
    std::vector<KeyAt> mKeys;
    size_t mNext = 0;
};

// The plug-in drops a frequency out of its range without a message.
SceneProblem FindSilentRefusal(const SceneCommand& command) {
    for (const SceneElement& element : command.elements) {
        for (const SceneKey& key : element.keys) {
            const std::optional<int> opcode = OpcodeOfKey(key.name);
            if (!opcode || !IsFrequency(*opcode)) continue;
            const long khz = std::atol(key.value.c_str());
            if (khz >= kLowestKhz && khz <= kHighestKhz) continue;
            return {key.place,
                    fmt::format("command {}: {} = {} is no frequency in kHz ({} to {}); the "
                                "plug-in refuses the command without a message",
                                command.Label(), key.name, key.value, kLowestKhz, kHighestKhz)};
        }
    }
    return {command.place,
            fmt::format("command {}: the plug-in refuses it without a message", command.Label())};
}

std::string Trimmed(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

}  // namespace

bool IsDescription(const SceneElement& element) {
    return element.name == "qcom_cpu_info" || element.name.rfind("freq_level_info", 0) == 0;
}

std::vector<SceneProblem> FindSceneProblems(const SceneFile& scenes,
                                            const std::vector<std::string>& errors,
                                            const std::set<int>& accepted) {
    std::vector<SceneProblem> problems;
    Finder finder(scenes);
    for (const std::string& error : errors) {
        const std::string message = Trimmed(error);
        problems.push_back({finder.Find(message), "the plug-in says: " + message});
    }
    for (const SceneCommand& command : scenes.Commands()) {
        if (accepted.count(command.id) || IsDescription(command.elements.front())) continue;
        const auto isNamed = [&command](const std::string& error) {
            const size_t at = error.find("cmdId is ");
            return at != std::string::npos && std::atoi(error.c_str() + at + 9) == command.id;
        };
        if (std::any_of(errors.begin(), errors.end(), isNamed)) continue;
        problems.push_back(FindSilentRefusal(command));
    }
    return problems;
}

std::vector<SceneProblem> FindClusterProblems(const SceneFile& scenes,
                                              const DeviceProfile& device) {
    const bool hasThree = device.clusters.size() >= 3;
    std::vector<SceneProblem> problems;
    bool isDescribed = false;
    for (const SceneCommand& command : scenes.Commands()) {
        const SceneElement& element = command.elements.front();
        if (element.name != "qcom_cpu_info") continue;
        isDescribed = true;
        for (const SceneKey& key : element.keys) {
            const CpuCluster* cluster = nullptr;
            if (key.name == "lit_cpu_num") cluster = &device.clusters.front();
            if (key.name == "big_cpu_num") cluster = &device.clusters[1];
            if (key.name == "prime_cpu_num" && hasThree) cluster = &device.clusters[2];
            if (!cluster && key.name != "prime_cpu_num") continue;
            const std::string actual =
                cluster ? fmt::format("{}-{}", cluster->firstCpu, cluster->lastCpu) : "none";
            if (actual == key.value) continue;
            problems.push_back({key.place, fmt::format("{} is {}, but on {} it is {}", key.name,
                                                       key.value, device.name, actual)});
        }
    }
    if (!isDescribed) {
        problems.push_back({{},
                            "no <qcom_cpu_info> describes the clusters; the plug-in takes CPU "
                            "0 for all of them"});
    }
    return problems;
}

std::string ProblemText(const SceneFile& scenes, const SceneProblem& problem) {
    if (problem.place.line == 0) return scenes.File() + ": " + problem.message;
    return fmt::format("{}:{}:{}: {}", scenes.File(), problem.place.line, problem.place.column,
                       problem.message);
}

}  // namespace lab

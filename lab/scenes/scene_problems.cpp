#include "lab/scenes/scene_problems.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "lab/scenes/scene_meaning.h"
#include "lab/yaml/yaml_tree.h"
#include "loader/element_keys.h"

namespace lab {

std::vector<SceneProblem> FindSceneProblems(const SceneFile& scenes,
                                            const CommandMeaning& command) {
    std::vector<SceneProblem> problems;
    for (size_t i = 0; i < command.RemarksSaid(); ++i) {
        const LoaderRemark& remark = command.remarks[i];
        const Place place = command.PlaceOf(remark);
        if (remark.kind == LoaderRemark::Kind::kLevelName) {
            throw InputError(scenes.File(), place.line, place.column,
                             "<" + command.elements.front().element->name +
                                 "> names no level; write <freq_level_info3>");
        }
        problems.push_back({place, remark.kind == LoaderRemark::Kind::kFrequency
                                       ? FrequencyText(command, remark)
                                       : "the plug-in says: " + remark.words});
    }
    return problems;
}

std::vector<SceneProblem> FindSceneProblems(const SceneFile& scenes) {
    const SceneMeaning meaning(scenes);
    std::vector<SceneProblem> problems;
    for (const SceneCommand& command : scenes.Commands()) {
        const std::vector<SceneProblem> found = FindSceneProblems(scenes, meaning.Of(command));
        problems.insert(problems.end(), found.begin(), found.end());
    }
    return problems;
}

std::string FrequencyText(const CommandMeaning& command, const LoaderRemark& remark) {
    return fmt::format(
        "command {}: {} = {} is no frequency in kHz ({} to {}); the plug-in refuses the command "
        "without a message",
        command.command->Label(), remark.key->name, remark.key->value, kLowestKhz, kHighestKhz);
}

std::vector<SceneProblem> FindClusterProblems(const SceneFile& scenes,
                                              const DeviceProfile& device) {
    std::vector<SceneProblem> problems;
    bool isDescribed = false;
    for (const SceneCommand& command : scenes.Commands()) {
        const SceneElement& element = command.elements.front();
        if (element.name != tarquel::keys::kCpuInfo) continue;
        isDescribed = true;
        for (const SceneKey& key : element.keys) {
            const CpuCluster* cluster = nullptr;
            for (const ClusterKeys& named : kClusterKeys) {
                if (key.name == named.cpus) cluster = device.FindCluster(named.name);
            }
            if (!cluster && !key.name.ends_with("_cpu_num")) continue;
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

std::vector<std::string> ClusterNotes(const DeviceProfile& device) {
    std::vector<std::string> notes;
    for (const ClusterKeys& named : kClusterKeys) {
        if (named.cpus == tarquel::keys::kPrimeCpus || device.FindCluster(named.name)) continue;
        notes.push_back(fmt::format(
            "{} has no {} cluster: unless a scene file's {} names CPUs, the plug-in takes CPU 0 "
            "for it, and the tags {}_min and {}_max reach CPU 0's cluster, {}; on the lab's phone "
            "locks of its {}_cpu0 keys drive nothing",
            device.name, named.name, named.cpus, named.name, named.name,
            device.clusters.front().name, named.name));
    }
    for (const CpuCluster& cluster : device.clusters) {
        const auto isIts = [&](const ClusterKeys& named) { return named.name == cluster.name; };
        if (std::any_of(std::begin(kClusterKeys), std::end(kClusterKeys), isIts)) continue;
        notes.push_back(fmt::format(
            "{}'s CPUs {}-{} ({}) are in none of the clusters that the plug-in knows (little, big, "
            "prime): no tag, no key and no ceiling reaches their frequency, unless a scene file's "
            "qcom_cpu_info counts them to a neighbour's CPUs",
            device.name, cluster.firstCpu, cluster.lastCpu, cluster.name));
    }
    return notes;
}

DeviceOfFile DeviceOfScenes(const SceneFile& scenes, const std::string& named) {
    if (!named.empty()) return {LoadDeviceProfile(named), "as asked"};
    const std::vector<std::string> names = DeviceProfileNames();
    const std::string stem = std::filesystem::path(scenes.File()).stem().string();
    if (std::find(names.begin(), names.end(), stem) != names.end()) {
        return {LoadDeviceProfile(stem), "by the file's name"};
    }
    for (const std::string& name : names) {
        DeviceProfile profile = LoadDeviceProfile(name);
        if (FindClusterProblems(scenes, profile).empty()) {
            return {std::move(profile), "whose clusters the file describes"};
        }
    }
    return {LoadDeviceProfile(kUsualDevice),
            "for want of another: the file describes no clusters of a shipped one; --device "
            "chooses",
            true};
}

std::string ProblemText(const SceneFile& scenes, const SceneProblem& problem) {
    if (problem.place.line == 0) return scenes.File() + ": " + problem.message;
    return fmt::format("{}:{}:{}: {}", scenes.File(), problem.place.line, problem.place.column,
                       problem.message);
}

}  // namespace lab

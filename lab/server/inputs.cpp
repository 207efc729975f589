#include "lab/server/inputs.h"

#include <fmt/format.h>

#include <filesystem>

#include "lab/names/text.h"
#include "lab/scenes/scene_meaning.h"
#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

bool IsFile(const fs::path& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

std::string FindFile(const std::string& name, const std::string& folder,
                     const std::string& extension, const std::string& what) {
    if (IsInput(name)) return name;
    std::error_code ignored;
    if (fs::is_directory(name, ignored)) {
        throw InputError(name, 0, 0, "this is a folder; give a " + what);
    }
    const std::string shipped = DataFolder() + "/" + folder + "/" + name;
    if (IsFile(shipped)) return shipped;
    if (IsFile(shipped + extension)) return shipped + extension;
    const std::vector<std::string> names = ShippedNames(folder, extension);
    throw InputError(name, 0, 0,
                     fmt::format("there is no such file, and no {} of this name ships with the "
                                 "lab{}; give a path or one of: {}",
                                 what, DidYouMean(name, names), Join(names)));
}

// `name` as a file in the scenario's folder; empty when there is none.
std::string FileBeside(const ScenarioHead& head, const std::string& name) {
    const fs::path beside = fs::path(head.file).parent_path() / name;
    return IsFile(beside) ? beside.string() : "";
}

}  // namespace

std::string FindScenarioFile(const std::string& name) {
    return FindFile(name, "scenarios", ".yaml", "scenario");
}

std::string FindSceneFile(const std::string& name) {
    return FindFile(name, "scenes", ".xml", "scene file");
}

std::string DeviceFileOf(const Instead& instead, const ScenarioHead& head) {
    const std::string& name = instead.device.empty() ? head.device : instead.device;
    if (!IsProfileFile(name)) return "";
    const std::string beside = instead.device.empty() ? FileBeside(head, name) : "";
    return beside.empty() ? name : beside;
}

DeviceProfile DeviceOfScenario(const Instead& instead, const ScenarioHead& head) {
    if (!instead.device.empty()) return LoadDeviceProfile(instead.device);
    const std::string file = DeviceFileOf(instead, head);
    try {
        return LoadDeviceProfile(file.empty() ? head.device : file);
    } catch (const InputError& error) {
        // A mistake within a profile has a place of its own.
        if (error.line > 0 || head.deviceNode.line == 0) throw;
        head.deviceNode.Fail(error.what());
    }
}

std::string ScenesOfScenario(const Instead& instead, const ScenarioHead& head,
                             const DeviceProfile& device) {
    if (!instead.scenes.empty()) return FindSceneFile(instead.scenes);
    const bool isOwnDevice = instead.device.empty() || instead.device == head.device;
    if (!head.scenes || !isOwnDevice) return FindSceneFile(device.name);
    const std::string beside = FileBeside(head, *head.scenes);
    if (!beside.empty()) return beside;
    try {
        return FindSceneFile(*head.scenes);
    } catch (const InputError& error) {
        head.scenesNode.Fail(error.what());
    }
}

SceneFile ScenesOfClusters(const DeviceProfile& device) {
    namespace keys = tarquel::keys;
    std::string text = fmt::format("<scenes><command id=\"1\"><{}>", keys::kCpuInfo);
    for (const auto& [name, key, ceiling] : kClusterKeys) {
        const CpuCluster* cluster = device.FindCluster(name);
        if (!cluster) continue;
        text += fmt::format("<{0}>{1}-{2}</{0}>", key, cluster->firstCpu, cluster->lastCpu);
    }
    text += fmt::format("<{0}>1</{0}></{1}></command></scenes>", keys::kIsolation, keys::kCpuInfo);
    return SceneFile::Parse(text, "the clusters of " + device.name);
}

}  // namespace lab

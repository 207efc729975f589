#include "lab/program/input_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "lab/names/text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

constexpr char kProfile[] = "device's profile";
constexpr char kScenes[] = "scene file";

std::vector<std::string> FilesBelow(const std::string& folder,
                                    const std::vector<std::string>& extensions) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    std::error_code error;
    for (fs::recursive_directory_iterator at(folder, error), end; !error && at != end;
         at.increment(error)) {
        const fs::path& path = at->path();
        const bool fits =
            std::find(extensions.begin(), extensions.end(), path.extension()) != extensions.end();
        if (fits && at->is_regular_file(error)) files.push_back(path.string());
    }
    if (error) throw InputError(folder, 0, 0, "cannot be read: " + error.message());
    if (files.empty()) {
        throw InputError(folder, 0, 0,
                         fmt::format("there is no file that ends in {} in this folder",
                                     fmt::join(extensions, " or ")));
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

std::vector<std::string> FilesOf(const std::vector<std::string>& names,
                                 const std::vector<std::string>& extensions) {
    std::vector<std::string> files;
    for (const std::string& name : names) {
        std::error_code ignored;
        if (!std::filesystem::is_directory(name, ignored)) {
            files.push_back(name);
            continue;
        }
        const std::vector<std::string> below = FilesBelow(name, extensions);
        files.insert(files.end(), below.begin(), below.end());
    }
    return files;
}

void ReadInsteadFiles(const Instead& instead, FileRoles& roles) {
    if (!instead.device.empty()) roles.Reads(ProfileFileOf(instead.device), kProfile);
    if (!instead.scenes.empty()) roles.Reads(FindSceneFile(instead.scenes), kScenes);
}

void ReadScenarioFiles(const std::string& scenario, const Instead& instead, FileRoles& roles) {
    std::string profile;
    std::string scenes;
    try {
        const ScenarioHead head = ReadScenarioHead(LoadYamlFile(scenario));
        const std::string own = DeviceFileOf(instead, head);
        profile = own.empty() ? ProfileFileOf(head.device) : own;
        scenes = ScenesOfScenario(instead, head, DeviceOfScenario(instead, head));
    } catch (const InputError&) {
    }
    roles.Reads(scenario, "scenario");
    roles.Reads(profile, kProfile);
    roles.Reads(scenes, kScenes);
}

}  // namespace lab

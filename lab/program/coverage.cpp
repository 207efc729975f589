#include "lab/program/coverage.h"

#include <fmt/format.h>

#include <filesystem>

#include "lab/names/text.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {
namespace {

void FindUsed(const std::vector<Step>& steps, const std::string& device, std::set<int>& used) {
    for (const Step& step : steps) {
        if (!step.device.empty() && step.device != device) continue;
        if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
            FindUsed(repeat->steps, device, used);
        } else if (const auto* command = std::get_if<DoCommand>(&step.request)) {
            used.insert(command->cmdId);
        } else if (const auto* interactive = std::get_if<DoInteractive>(&step.request)) {
            used.insert(interactive->cmdId);
        }
    }
}

}  // namespace

int Coverage::File::Percent() const {
    return All() == 0 ? 100 : static_cast<int>(used * 100 / All());
}

std::string Coverage::File::Text() const {
    std::string text =
        fmt::format("{}: {} of {} used ({} %)", scenes, used, Counted(All(), "scene"), Percent());
    return unused.empty() ? text : text + "; not used: " + Join(unused);
}

void Coverage::Add(const SceneFile& scenes, const std::vector<Step>& steps,
                   const std::string& device) {
    // One file, however its scenarios name it.
    Seen& seen = mFiles[std::filesystem::path(scenes.File()).lexically_normal().string()];
    for (const SceneCommand& command : scenes.Commands()) {
        if (!IsDescription(command)) seen.labels.emplace(command.id, command.Label());
    }
    FindUsed(steps, device, seen.used);
}

std::vector<Coverage::File> Coverage::Files() const {
    std::vector<File> files;
    for (const auto& [scenes, seen] : mFiles) {
        File& file = files.emplace_back();
        file.scenes = scenes;
        for (const auto& [id, label] : seen.labels) {
            if (seen.used.contains(id)) {
                ++file.used;
            } else {
                file.unused.push_back(label);
            }
        }
    }
    return files;
}

}  // namespace lab

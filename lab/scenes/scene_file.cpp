#include "lab/scenes/scene_file.h"

#include <algorithm>

#include "lab/scenes/scene_meaning.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

std::string SceneCommand::Label() const {
    if (id == kNoId) return name.empty() ? "without an id" : name;
    return name.empty() ? std::to_string(id) : name + " (" + std::to_string(id) + ")";
}

SceneFile SceneFile::Load(const std::string& file) {
    return Parse(ReadSceneText(file), file);
}

SceneFile SceneFile::Parse(const std::string& text, const std::string& file) {
    std::vector<SceneProblem> problems;
    SceneFile scenes = ParseAll(text, file, problems);
    if (!problems.empty()) {
        const SceneProblem& first = problems.front();
        throw InputError(file, first.place.line, first.place.column, first.message);
    }
    return scenes;
}

SceneFile SceneFile::Of(std::vector<SceneCommand> commands, const std::string& file) {
    SceneFile scenes;
    scenes.mFile = file;
    scenes.mCommands = std::move(commands);
    std::stable_sort(scenes.mCommands.begin(), scenes.mCommands.end(),
                     [](const SceneCommand& a, const SceneCommand& b) { return a.id < b.id; });
    for (size_t i = 0; i < scenes.mCommands.size(); ++i) {
        const std::string& name = scenes.mCommands[i].name;
        if (!name.empty()) scenes.mNames.emplace(name, i);
    }
    return scenes;
}

const SceneCommand* SceneFile::Find(int id) const {
    const auto found = std::lower_bound(
        mCommands.begin(), mCommands.end(), id,
        [](const SceneCommand& command, int wanted) { return command.id < wanted; });
    return found != mCommands.end() && found->id == id ? &*found : nullptr;
}

const SceneCommand* SceneFile::Find(const std::string& name) const {
    const auto found = mNames.find(name);
    return found == mNames.end() ? nullptr : &mCommands[found->second];
}

Layout SceneFile::ClusterLayout() const {
    const bool hasPrime = std::any_of(mCommands.begin(), mCommands.end(), NamesPrimeCluster);
    return hasPrime ? Layout::kThreeClusters : Layout::kTwoClusters;
}

RawXmlData& SceneFile::NewRecord(const SceneCommand& command, const SceneElement& element) {
    RawXmlData& record = *mRecords.emplace_back(std::make_unique<RawXmlData>());
    record.cmdId = command.id;
    record.stateMask = element.stateMask;
    record.skip = element.skip;
    record.taskBoost = element.taskBoost;
    record.name = element.name;
    for (const SceneKey& key : element.keys) {
        record.keys.push_back(key.name);
        record.values.push_back(key.value);
    }
    return record;
}

std::map<int, RawXmlData*> SceneFile::Heads() {
    if (!mHeads.empty()) return mHeads;
    for (const SceneCommand& command : mCommands) {
        if (command.interactive) continue;
        RawXmlData* last = mRecords.emplace_back(std::make_unique<RawXmlData>()).get();
        last->cmdId = command.id;
        last->headValue0 = command.headers[0];
        last->headValue1 = command.headers[1];
        last->headValue2 = command.headers[2];
        last->name = command.name;
        mHeads[command.id] = last;
        for (const SceneElement& element : command.elements) {
            last->next = &NewRecord(command, element);
            last = last->next;
        }
    }
    return mHeads;
}

}  // namespace lab

// A scene file of any content: the reader takes it or says where it is wrong, and the loader and
// the reports get along with whatever the reader took.
#include <stdexcept>
#include <string>

#include "fuzz/finding.h"
#include "lab/phone/phone.h"
#include "lab/scenes/scene_problems.h"
#include "lab/server/library.h"
#include "lab/yaml/yaml_tree.h"

namespace {

struct World {
    lab::Phone phone{lab::LoadDeviceProfile("sm8450")};
    lab::Library library{""};
};

std::set<int> Load(World& world, lab::SceneFile& scenes) {
    std::map<int, RawXmlData*> heads = scenes.Heads();
    std::set<int> accepted;
    for (const auto& [id, chain] : world.library.ParseScenes(heads)) accepted.insert(id);
    for (const lab::SceneCommand& command : scenes.Commands()) {
        if (!command.interactive) continue;
        if (world.library.ParseInteractive(scenes.InteractiveRecord(command)) != nullptr) {
            accepted.insert(command.id);
        }
    }
    return accepted;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World* const world = new World;
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        std::vector<lab::SceneProblem> mistakes;
        lab::SceneFile::ParseAll(text, "input.xml", mistakes);
        for (const lab::SceneProblem& mistake : mistakes) {
            fuzz::Require(mistake.place.line > 0 && mistake.place.column > 0,
                          "a mistake without its place");
        }
        lab::SceneFile scenes = lab::SceneFile::Parse(text, "input.xml");
        const std::set<int> accepted = Load(*world, scenes);
        std::vector<std::string> errors;
        for (const lab::LogLine& line : world->phone.Events().All<lab::LogLine>()) {
            errors.push_back(line.text);
        }
        for (const auto& problems :
             {lab::FindSceneProblems(scenes, errors, accepted),
              lab::FindClusterProblems(scenes, world->phone.GetKernel().Profile())}) {
            for (const lab::SceneProblem& problem : problems) {
                fuzz::Require(!lab::ProblemText(scenes, problem).empty(), "a problem without text");
            }
        }
    } catch (const lab::InputError& error) {
        fuzz::Require(error.line > 0 && error.column > 0, "a mistake without its place");
    } catch (const std::logic_error&) {
        // The loader's, of a level without a number; what reads scenes for a server says so.
    }
    world->phone.Events().Clear();
    return 0;
}

// A scene file of any content: the reader takes it or says where it is wrong, and the loader makes
// of whatever the reader took what the lab says of it.
#include <string>

#include "fuzz/finding.h"
#include "fuzz/scene_agreement.h"
#include "lab/phone/phone.h"
#include "lab/scenes/scene_problems.h"
#include "lab/server/library.h"
#include "lab/yaml/yaml_tree.h"

namespace {

struct World {
    lab::Phone phone{lab::LoadDeviceProfile("sm8450")};
    lab::Library library{""};
};

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
        const std::string difference = fuzz::FindDisagreement(scenes, world->phone, world->library);
        fuzz::Require(difference.empty(), difference.c_str());
        for (const auto& problems :
             {lab::FindSceneProblems(scenes),
              lab::FindClusterProblems(scenes, world->phone.GetKernel().Profile())}) {
            for (const lab::SceneProblem& problem : problems) {
                fuzz::Require(!lab::ProblemText(scenes, problem).empty(), "a problem without text");
            }
        }
    } catch (const lab::InputError& error) {
        fuzz::Require(error.line > 0 && error.column > 0, "a mistake without its place");
    }
    world->phone.Events().Clear();
    return 0;
}

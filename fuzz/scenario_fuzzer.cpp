// A scenario of any content: it is read, or the reader says where it is wrong.
#include <string>

#include "fuzz/finding.h"
#include "lab/phone/device_profile.h"
#include "lab/server/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static auto* const scenes =
        new lab::SceneFile(lab::SceneFile::Load(lab::DataFolder() + "/scenes/sm8450.xml"));
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const lab::YamlNode root = lab::LoadYamlText(text, "input.yaml");
        const lab::ScenarioHead head = lab::ReadScenarioHead(root);
        const std::vector<lab::Step> steps = lab::ReadScenarioSteps(root, *scenes);
        for (const lab::Step& step : steps) {
            fuzz::Require(step.line > 0 && step.ms >= 0, "a step without its line or time");
        }
    } catch (const lab::InputError& error) {
        fuzz::Require(error.what()[0] != '\0', "a mistake without words");
    }
    return 0;
}

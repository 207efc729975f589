#include "lab/ask/why.h"

#include <fmt/format.h>

#include "lab/check/scenario_check.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/server/runner.h"

namespace lab {
namespace {

// The nodes that steps create, among them those of repeats.
void AddArranged(const std::vector<Step>& steps, std::vector<std::string>& paths) {
    for (const Step& step : steps) {
        if (const auto* arrange = std::get_if<ArrangeNodes>(&step.request)) {
            for (const auto& [path, value] : arrange->nodes) {
                if (value) paths.push_back(path);
            }
        } else if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
            AddArranged(repeat->steps, paths);
        }
    }
}

}  // namespace

WhyAnswer AskWhy(const YamlNode& scenario, const WhyQuestion& question) {
    const ScenarioHead head = ReadScenarioHead(scenario);
    const DeviceProfile device = DeviceOfScenario(question.instead, head);
    SceneFile scenes = SceneFile::Load(ScenesOfScenario(question.instead, head, device));
    const std::vector<Step> steps = ReadScenarioSteps(scenario, scenes);

    Phone phone(device);
    for (const auto& [name, value] : head.properties) phone.SetProperty(name, value);
    std::vector<std::string> arranged;
    AddArranged(steps, arranged);
    const NodeTarget target = FindNode(question.node, device, phone.GetKernel(), arranged);
    const std::string boot = phone.GetKernel().Value(target.path);

    Book book(device, scenes, phone.GetKernel());
    book.KeepEnded(target);
    Library library(question.library);
    Server server(phone, library, scenes);
    Runner runner(phone, server, book, device, scenes, [](const Event&) {});
    runner.Start(head);
    if (question.at) {
        runner.PlayUntil(steps, *question.at);
    } else {
        runner.Play(steps);
    }
    runner.Finish();

    WhyAnswer answer;
    answer.story = TellNodeStory(target, book, boot, server.Status());
    answer.story.at = phone.GetClock().Now();
    answer.device = device.name;
    answer.scenario = head.title.empty() ? head.file : head.title;
    answer.scenes = scenes.File();
    for (std::string& note : ClusterNotes(device)) answer.problems.push_back(std::move(note));
    if (question.at && *question.at > runner.PlayedTo()) {
        answer.problems.push_back(fmt::format(
            "{}: {} s is after the scenario's end at {} s: what is shown is what comes of "
            "it without further requests",
            head.file, SecondsText(*question.at), SecondsText(runner.PlayedTo())));
    }
    for (std::string& slip : FindUnitSlips(steps, head.file, device, scenes.ClusterLayout())) {
        answer.problems.push_back(std::move(slip));
    }
    for (const SceneProblem& problem : server.Problems()) {
        answer.problems.push_back(ProblemText(scenes, problem));
    }
    return answer;
}

}  // namespace lab

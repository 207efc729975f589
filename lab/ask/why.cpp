#include "lab/ask/why.h"

#include <cmath>
#include <cstdlib>

#include "lab/check/scenario_check.h"
#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/server/runner.h"

namespace lab {
namespace {

// A day and more: far behind the end of any scenario that a run can take.
constexpr double kLatestSeconds = 1e7;

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

std::optional<Time> ParseMoment(const std::string& text) {
    if (text.empty() || text[0] < '0' || text[0] > '9') return std::nullopt;
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    const std::string unit = end;
    const bool isSeconds = unit == "s" || (unit.empty() && text.find('.') != text.npos);
    if (!unit.empty() && unit != "s" && unit != "ms") return std::nullopt;
    const double seconds = isSeconds ? number : number / 1000;
    if (!(seconds >= 0) || seconds > kLatestSeconds) return std::nullopt;
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

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
    for (std::string& slip : FindUnitSlips(steps, head.file, device, scenes.ClusterLayout())) {
        answer.problems.push_back(std::move(slip));
    }
    for (const SceneProblem& problem : server.Problems()) {
        answer.problems.push_back(ProblemText(scenes, problem));
    }
    return answer;
}

}  // namespace lab

#include "lab/ask/why.h"

#include "lab/names/node_names.h"

namespace lab {

WhyAnswer AskWhy(Replay& replay, const std::string& node) {
    const Kernel& kernel = replay.GetPhone().GetKernel();
    const NodeTarget target = FindNode(node, replay.Device(), kernel, replay.ArrangedNodes());
    const std::string boot = kernel.Value(target.path);
    replay.GetBook().KeepEnded(target);
    replay.Play([](const Event&) {});

    WhyAnswer answer;
    answer.story = TellNodeStory(target, replay.GetBook(), boot, replay.Status());
    answer.story.at = replay.Now();
    answer.times = replay.Times();
    answer.device = replay.Device().name;
    answer.scenario = replay.Title();
    answer.scenes = replay.Scenes().File();
    answer.problems = replay.Remarks();
    answer.isWhole = replay.IsWhole();
    TellDoubts(replay, answer.story);
    return answer;
}

}  // namespace lab

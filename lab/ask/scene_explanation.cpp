#include "lab/ask/scene_explanation.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "base/ids.h"
#include "lab/hal/opcode_drives.h"
#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"
#include "lab/phone/phone.h"
#include "lab/scenes/scene_problems.h"
#include "lab/server/library.h"
#include "lab/server/server.h"
#include "nodes/inter_path_table.h"

namespace lab {
namespace {

using Kind = CommandMeaning::Kind;

// How long the plug-in lifts the limits for an action that lasts until released.
constexpr int kUntimedBreakthroughMs = 3000;

// The part of a file that tells what one command does: that command, and what describes the device.
SceneFile OnlyWith(const SceneCommand& command, const SceneFile& scenes) {
    std::vector<SceneCommand> commands;
    for (const SceneCommand& each : scenes.Commands()) {
        if (&each == &command || IsDescription(each)) commands.push_back(each);
    }
    return SceneFile::Of(std::move(commands), scenes.File());
}

// A phone with a scene file on it, where commands are tried.
class Trial {
  public:
    Trial(SceneFile scenes, const DeviceProfile& device, const std::string& library)
        : mScenes(std::move(scenes)),
          mDevice(device),
          mLayout(mScenes.ClusterLayout()),
          mPhone(device),
          mLibrary(library),
          mServer(mPhone, mLibrary, mScenes) {
        mServer.Start();
    }

    // Runs the command and adds what it was seen to do.
    void Run(const CommandMeaning& meaning, ExplainedCommand& told) {
        const SceneCommand& command = *meaning.command;
        if (!told.isAccepted || told.kind == Kind::kDescription) return;
        if (told.kind == Kind::kInteractive) return RunInteractive(command, told);
        int state = 0;
        for (const SceneElement& element : command.elements) {
            if (element.stateMask > 0) state |= element.stateMask;
        }
        if (state != 0) mServer.Send(SetStateBits{state});
        mPhone.Events().Clear();
        const bool isRefused = mServer.Send(DoCommand{command.id, {0}, ""}).result != 0;
        TakeErrors(told);
        std::set<int> sent;
        for (const LockAcquire& lock : mPhone.Events().All<LockAcquire>()) {
            for (size_t i = 0; i + 1 < lock.list.size(); i += 2) sent.insert(lock.list[i]);
        }
        for (size_t i = 0; i < told.elements.size(); ++i) {
            AddNodes(meaning.elements[i], isRefused, sent, told.elements[i]);
        }
        AddLifts(command, told);
    }

  private:
    void TakeErrors(ExplainedCommand& told) {
        for (const LogLine& line : mPhone.Events().All<LogLine>()) {
            if (line.priority < kAndroidError || IsUsualLine(line.text)) continue;
            told.said.push_back(WithoutNewline(line.text));
        }
    }

    void AddNodes(const ElementMeaning& element, bool isRefused, const std::set<int>& sent,
                  ExplainedElement& told) const {
        const bool runs = !told.source->skip && told.durationMs >= 0;
        const std::vector<const KeyMeaning*> pairs = element.Kept();
        for (size_t i = 0; i < pairs.size(); ++i) {
            ExplainedPair& pair = told.pairs[i];
            const int code = pairs[i]->code;
            const int value = pairs[i]->HandedOn();
            const bool isTag = element.isLongScene;
            const int opcode = isTag ? FindTagOpcode(code, mLayout).value_or(0) : code;
            const int lockValue = isTag ? HalValue(code, value) : value;
            for (const Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), mDevice)) {
                AddNode(drive, lockValue, runs, pair);
            }
            const bool isOfPrime = pair.key.find("prime") != std::string::npos;
            if (isOfPrime && !mDevice.HasPrime()) {
                pair.notes.push_back(fmt::format("has no effect: {} has {}", mDevice.name,
                                                 Counted(mDevice.clusters.size(), "cluster")));
            }
            if (!runs || sent.count(opcode)) continue;
            pair.notes.emplace_back(isRefused ? "refused when it runs"
                                    : isTag   ? "no lock: no stricter than the default"
                                            : "not in the lock: it takes 32 pairs, those with the "
                                              "smallest opcodes");
        }
    }

    void AddNode(const Drive& drive, int value, bool runs, ExplainedPair& pair) const {
        const Kernel& kernel = mPhone.GetKernel();
        ExplainedPair::Node node{drive.path, kernel.Has(drive.path), ""};
        const int64_t wanted = ToNodeUnit(drive, value, mDevice);
        if (node.exists && runs) {
            node.reads = NodeText(kernel.Value(drive.path));
        }
        const std::string rounding = RoundingText(drive, value, wanted);
        if (!rounding.empty()) pair.notes.push_back(rounding);
        const std::string decided = node.reads.empty() ? "" : WhatDecided(drive, wanted);
        if (!decided.empty()) pair.notes.push_back(decided);
        pair.nodes.push_back(std::move(node));
    }

    // Why the node reads something else than `wanted`; empty when it does not.
    std::string WhatDecided(const Drive& drive, int64_t wanted) const {
        const std::string now = mPhone.GetKernel().Value(drive.path);
        for (const PerfHal::Claim& claim : mPhone.Hal().ClaimsOn(drive.path)) {
            if (claim.entry != drive.entry || !claim.wins || claim.nodeValue == wanted) continue;
            return fmt::format("another limit of the command counts: {}", claim.nodeValue);
        }
        const std::optional<int64_t> shown = ParseNumber(now);
        if (!shown || *shown == wanted || drive.entry) return "";
        return fmt::format("the node makes {} of {}: its range, or its other end", *shown, wanted);
    }

    // Completes the chain under each thermal level, as the server does before it runs.
    void AddLifts(const SceneCommand& command, ExplainedCommand& told) {
        for (int level = 1; level <= kThermalLevels; ++level) {
            mServer.Send(
                SetLimits{tarquel::kClientTemp, {{kControlTypeTag, ControlTypeOf(level)}}});
            const ActionChain boosted = mServer.Boosted(command.id);
            const Action* before = mServer.FindChain(command.id);
            const Action* after = boosted.get();
            for (ExplainedElement& element : told.elements) {
                if (before->boostLimitLevel >= level && before->breakThrough != 0) {
                    element.lifts.push_back(LiftOf(*before, *after, level));
                }
                before = before->next;
                after = after->next;
            }
        }
    }

    ThermalLift LiftOf(const Action& before, const Action& after, int level) const {
        ThermalLift lift;
        lift.thermalLevel = level;
        lift.forMs = before.duration == 0 ? kUntimedBreakthroughMs : before.duration;
        const auto index = static_cast<size_t>(level) - 1;
        const bool isCompleted = after.perfList.size() > before.perfList.size();
        if (isCompleted && index < before.boostLevels.size()) {
            lift.frequencyLevel = before.boostLevels[index];
        }
        for (size_t i = 0; i + 1 < after.perfList.size(); i += 2) {
            const Resource resource = ResourceOf(after.perfList[i], mLayout);
            const ThermalLift::Ceiling ceiling{resource.name,
                                               WithUnit(after.perfList[i + 1], resource.unit)};
            if (i >= before.perfList.size()) {
                lift.ceilings.push_back(ceiling);
            } else if (after.perfList[i + 1] != before.perfList[i + 1]) {
                lift.rewritten.push_back(ceiling);
            }
        }
        return lift;
    }

    void RunInteractive(const SceneCommand& command, ExplainedCommand& told) {
        mPhone.Events().Clear();
        mServer.Send(DoInteractive{command.id, {0}});
        TakeErrors(told);
        for (ExplainedPair& pair : told.elements.front().pairs) {
            const char* path = tarquel::FindInterPath(pair.key);
            if (!path) {
                pair.notes.emplace_back("names no node");
                continue;
            }
            const Kernel& kernel = mPhone.GetKernel();
            pair.nodes.push_back({path, kernel.Has(path), kernel.Value(path)});
        }
    }

    SceneFile mScenes;
    const DeviceProfile& mDevice;
    const Layout mLayout;
    mutable Phone mPhone;
    Library mLibrary;
    Server mServer;
};

const SceneCommand& FindCommand(const SceneFile& scenes, const std::string& name) {
    const std::optional<int64_t> id = ParseNumber(name);
    const SceneCommand* command =
        id && *id >= 0 && *id <= INT32_MAX ? scenes.Find(static_cast<int>(*id)) : scenes.Find(name);
    if (command) return *command;
    std::vector<std::string> names;
    for (const SceneCommand& known : scenes.Commands()) {
        names.push_back(id ? std::to_string(known.id) : known.name);
    }
    throw std::runtime_error(
        fmt::format("{} has no command '{}'{}; 'tarquel-lab explain {}' lists its {} commands",
                    scenes.File(), name, DidYouMean(name, names), scenes.File(), names.size()));
}

}  // namespace

Explanation ExplainScenes(const SceneFile& scenes, const std::string& command,
                          const std::string& device, const std::string& library) {
    Explanation explanation;
    explanation.file = scenes.File();
    const auto [profile, why, isAssumed] = DeviceOfScenes(scenes, device);
    explanation.isAssumed = isAssumed;
    explanation.device = profile.name;
    for (const std::string& note : ClusterNotes(profile)) explanation.problems.push_back(note);
    for (const SceneProblem& problem : FindClusterProblems(scenes, profile)) {
        explanation.problems.push_back(ProblemText(scenes, problem));
    }
    const SceneMeaning meaning(scenes);
    if (command.empty()) {
        for (const SceneCommand& each : scenes.Commands()) {
            explanation.commands.push_back(TranslateCommand(scenes, meaning.Of(each)));
        }
        return explanation;
    }
    const SceneCommand& only = FindCommand(scenes, command);
    const CommandMeaning made = meaning.Of(only);
    explanation.commands.push_back(TranslateCommand(scenes, made));
    Trial(OnlyWith(only, scenes), profile, library).Run(made, explanation.commands.front());
    return explanation;
}

}  // namespace lab

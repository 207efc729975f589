#include "lab/server/runner.h"

#include <fmt/format.h>

namespace lab {
namespace {

// The requests that need the action which the plug-in made of their command.
template <typename Asked>
constexpr bool kNeedsChain =
    std::is_same_v<Asked, DoCommand> || std::is_same_v<Asked, DoInteractive> ||
    std::is_same_v<Asked, GetCeilings> || std::is_same_v<Asked, GetChipType>;

Server::Outcome Arrange(const RunParts& run, const SetOnDemand& asked) {
    for (const auto& [cmdId, ms] : asked.msOfCommand) run.phone.SetOnDemandDuration(cmdId, ms);
    return {};
}

Server::Outcome Arrange(const RunParts& run, const ArrangeFaults& asked) {
    Inject(asked, run.scenes.ClusterLayout(), run.device, run.phone);
    Server::Outcome outcome;
    if (asked.hal) outcome.facts.arrangedRefusals = asked.hal->refusals;
    return outcome;
}

Server::Outcome Arrange(const RunParts& run, const ArrangeNodes& asked) {
    Kernel& kernel = run.phone.GetKernel();
    for (const auto& [path, value] : asked.nodes) {
        NodeAccess arranged{NodeAccess::Kind::kArrange, path, "", "", value.value_or("")};
        if (value) {
            arranged.alsoChanged = kernel.Force(path, *value);
        } else {
            kernel.Remove(path);
        }
        run.phone.Events().Add(std::move(arranged));
    }
    return {};
}

Server::Outcome Arrange(const RunParts& run, const ArrangeProperties& asked) {
    for (const auto& [name, value] : asked.properties) run.phone.SetProperty(name, value);
    return {};
}

}  // namespace

void Runner::Start(const ScenarioHead& head) {
    mFile = head.file;
    for (const auto& [name, value] : head.properties) mRun.phone.SetProperty(name, value);
    const auto make = [this](const std::string& text, Request request) {
        Step step;
        step.text = text;
        step.request = std::move(request);
        Make(step);
    };
    if (!head.faultsText.empty()) make(head.faultsText, head.faults);
    const std::string text = fmt::format("start with {} commands", mRun.scenes.Commands().size());
    Begin({text, 0});
    mRun.server.Start();
    RequestFacts facts;
    facts.text = "the start";
    End(std::move(facts), "");
    if (head.debug) make("debug on", SetDebugSwitch{true});
    if (head.state != 0) {
        make(fmt::format("state 0x{:x}", static_cast<unsigned>(head.state)),
             SetStateBits{head.state});
    }
    mCursor = mOrigin = mRun.phone.GetClock().Now();
}

void Runner::Play(const std::vector<Step>& steps) {
    mKeepsLog = ExpectsLog(steps);
    if (!mKeepsLog) mLog.clear();
    PlayList(steps);
}

void Runner::PlayList(const std::vector<Step>& steps) {
    for (const Step& step : steps) {
        if (mEnd && mCursor > *mEnd) return;
        PlayStep(step);
    }
}

void Runner::PlayUntil(const std::vector<Step>& steps, Time end) {
    mEnd = mOrigin + end;
    Play(steps);
    AdvanceTo(*mEnd);
}

void Runner::PlayStep(const Step& step) {
    const Time time = std::chrono::milliseconds(step.ms);
    mCursor = step.absolute ? mOrigin + time : mCursor + time;
    if (mEnd && mCursor > *mEnd) return;
    AdvanceTo(mCursor);
    if (!step.device.empty() && step.device != mRun.device.name) return;
    if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
        for (int64_t round = 0; round < repeat->count; ++round) PlayList(repeat->steps);
    } else if (!std::holds_alternative<Wait>(step.request)) {
        Make(step);
    }
}

void Runner::Make(const Step& step) {
    Begin(BeginningOf(step));
    Server::Outcome outcome =
        std::visit([this](const auto& asked) { return Perform(asked); }, step.request);
    if (step.returns && *step.returns != outcome.result) {
        const std::string failure =
            fmt::format("returned {}, the scenario expects {}", outcome.result, *step.returns);
        AddFinding(fmt::format("{}:{}: {} {}", mFile, step.line, step.text, failure));
        outcome.text = "failed: " + failure;
    }
    if (!std::holds_alternative<Expect>(step.request)) mLastResult = outcome.result;
    End(std::move(outcome.facts), outcome.text);
}

void Runner::Begin(RequestBegin begin) {
    ++mRequests;
    mRun.phone.Events().Add(std::move(begin));
}

// About the request under way, which the book has not seen yet.
void Runner::AddFinding(const std::string& text) {
    mRun.book.AddFinding({text, mRun.phone.GetClock().Now(), mRequests});
}

RequestBegin Runner::BeginningOf(const Step& step) const {
    RequestBegin begin;
    begin.text = step.text;
    begin.line = step.line;
    std::visit(
        [&](const auto& asked) {
            if constexpr (requires { asked.clientId; }) begin.client = ClientLabel(asked.clientId);
            if constexpr (requires { asked.cmdId; }) {
                const SceneCommand& command = *mRun.scenes.Find(asked.cmdId);
                begin.command = command.name.empty() ? std::to_string(command.id) : command.name;
            }
        },
        step.request);
    return begin;
}

void Runner::End(RequestFacts facts, const std::string& result) {
    mRun.phone.Events().Explain(std::make_shared<const RequestFacts>(std::move(facts)));
    mRun.phone.Events().Add(RequestEnd{result});
    HandOn();
}

void Runner::AdvanceTo(Time at) {
    Clock& clock = mRun.phone.GetClock();
    for (auto due = clock.NextDue(); due && *due < at; due = clock.NextDue()) {
        clock.AdvanceTo(*due);
        HandOn();
    }
    clock.AdvanceTo(at);
    HandOn();
}

void Runner::HandOn() {
    if (mRun.phone.GetClock().IsVirtual()) Finish();
}

void Runner::Finish() {
    for (const Event& event : mRun.phone.Events().Events()) {
        mRun.book.Observe(event);
        const auto* line = std::get_if<LogLine>(&event.what);
        if (line && mKeepsLog) mLog.push_back(*line);
        mObserve(event);
    }
    mRun.phone.Events().Clear();
}

template <typename Asked>
Server::Outcome Runner::Perform(const Asked& asked) {
    if constexpr (kNeedsChain<Asked>) {
        if (!mRun.server.FindChain(asked.cmdId)) return Refuse(asked.cmdId);
    }
    if constexpr (requires { mRun.server.Send(asked); }) return mRun.server.Send(asked);
    if constexpr (requires { Arrange(mRun, asked); }) return Arrange(mRun, asked);
    return {};
}

// A command that the plug-in refused when it read the scenes cannot run: a finding, not the end.
Server::Outcome Runner::Refuse(int cmdId) {
    const SceneCommand& command = *mRun.scenes.Find(cmdId);
    const std::string why = fmt::format("the plug-in refused this command ({}:{})",
                                        mRun.scenes.File(), command.place.line);
    AddFinding(command.Label() + " cannot run: " + why);
    Server::Outcome outcome;
    outcome.result = outcome.facts.result = -1;
    outcome.facts.cmdId = cmdId;
    outcome.text = "failed: " + why;
    return outcome;
}

Server::Outcome Runner::Perform(const Expect& asked) {
    Server::Outcome outcome;
    const double seconds = std::chrono::duration<double>(mRun.phone.GetClock().Now()).count();
    for (const FailedExpectation& failed : Compare(mRun, asked, mLog, mLastResult)) {
        AddFinding(fmt::format("{}:{}: {}, at {:.3f} s", mFile, failed.line, failed.text, seconds));
        outcome.text += (outcome.text.empty() ? "failed: " : "; ") + failed.text;
    }
    if (ExpectsLog(asked)) mLog.clear();
    outcome.result = outcome.text.empty() ? 0 : -1;
    if (outcome.text.empty()) outcome.text = "as expected";
    return outcome;
}

}  // namespace lab

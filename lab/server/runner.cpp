#include "lab/server/runner.h"

#include <fmt/format.h>

#include "lab/server/node_names.h"
#include "lab/server/text.h"

namespace lab {

Runner::Runner(Phone& phone, Server& server, Ledger& ledger, const DeviceProfile& device,
               const SceneFile& scenes, std::function<void(const Event&)> observe)
    : mPhone(phone),
      mServer(server),
      mLedger(ledger),
      mDevice(device),
      mScenes(scenes),
      mObserve(std::move(observe)) {}

void Runner::Start(const ScenarioHead& head) {
    if (!head.faultsText.empty()) {
        Step faults;
        faults.text = head.faultsText;
        faults.request = head.faults;
        Make(faults);
    }
    const std::string text = fmt::format("start with {} commands", mScenes.Commands().size());
    mPhone.Events().Add(RequestBegin{text, 0});
    mServer.Start();
    RequestFacts facts;
    facts.text = "the start";
    mLedger.Announce(std::move(facts));
    mPhone.Events().Add(RequestEnd{""});
    HandOn();
    Step step;
    if (head.debug) {
        step.text = "debug on";
        step.request = SetDebugSwitch{true};
        Make(step);
    }
    if (head.state != 0) {
        step.text = fmt::format("state 0x{:x}", static_cast<unsigned>(head.state));
        step.request = SetStateBits{head.state};
        Make(step);
    }
    mCursor = mOrigin = mPhone.GetClock().Now();
}

void Runner::Play(const std::vector<Step>& steps) {
    for (const Step& step : steps) PlayStep(step);
}

void Runner::PlayStep(const Step& step) {
    const Time time = std::chrono::milliseconds(step.ms);
    mCursor = step.absolute ? mOrigin + time : mCursor + time;
    mPhone.GetClock().AdvanceTo(mCursor);
    HandOn();
    if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
        for (int64_t round = 0; round < repeat->count; ++round) Play(repeat->steps);
    } else if (!std::holds_alternative<Wait>(step.request)) {
        Make(step);
    }
}

void Runner::Make(const Step& step) {
    mPhone.Events().Add(RequestBegin{step.text, step.line});
    Record(step, std::visit([this](const auto& asked) { return Perform(asked); }, step.request));
}

void Runner::Record(const Step& step, Server::Outcome outcome) {
    if (step.returns && *step.returns != outcome.result) {
        const std::string failure =
            fmt::format("returned {}, the scenario expects {}", outcome.result, *step.returns);
        mLedger.AddFinding(fmt::format("line {}: {} {}", step.line, step.text, failure));
        outcome.text = "failed: " + failure;
    }
    outcome.facts.text = step.text;
    outcome.facts.line = step.line;
    mLedger.Announce(std::move(outcome.facts));
    mPhone.Events().Add(RequestEnd{outcome.text});
    HandOn();
}

void Runner::HandOn() {
    if (mPhone.GetClock().IsVirtual()) Finish();
}

void Runner::Finish() {
    for (const Event& event : mPhone.Events().Events()) mObserve(event);
    mPhone.Events().Clear();
}

template <typename Asked>
Server::Outcome Runner::Perform(const Asked& asked) {
    return mServer.Send(asked);
}

// A command that the plug-in refused when it read the scenes cannot run: a finding, not the end.
template <typename Asked>
Server::Outcome Runner::SendIfKnown(int cmdId, const Asked& asked) {
    if (mServer.Has(cmdId)) return mServer.Send(asked);
    const SceneCommand* command = mScenes.Find(cmdId);
    const std::string why = fmt::format("the plug-in refused this command ({}:{})", mScenes.File(),
                                        command ? command->place.line : 0);
    mLedger.AddFinding(
        fmt::format("{} cannot run: {}", command ? command->Label() : std::to_string(cmdId), why));
    Server::Outcome outcome;
    outcome.result = -1;
    outcome.text = "failed: " + why;
    return outcome;
}

Server::Outcome Runner::Perform(const DoCommand& asked) {
    return SendIfKnown(asked.cmdId, asked);
}

Server::Outcome Runner::Perform(const DoInteractive& asked) {
    return SendIfKnown(asked.cmdId, asked);
}

Server::Outcome Runner::Perform(const GetCeilings& asked) {
    return SendIfKnown(asked.cmdId, asked);
}

Server::Outcome Runner::Perform(const GetChipType& asked) {
    return SendIfKnown(asked.cmdId, asked);
}

Server::Outcome Runner::Perform(const SetOnDemand& asked) {
    for (const auto& [cmdId, ms] : asked.msOfCommand) mPhone.SetOnDemandDuration(cmdId, ms);
    return {};
}

Server::Outcome Runner::Perform(const ArrangeFaults& asked) {
    Inject(asked, mScenes.ClusterLayout(), mDevice, mPhone);
    Server::Outcome outcome;
    if (asked.hal || asked.liftsAll) {
        outcome.facts.arrangedRefusals = asked.hal ? asked.hal->refusals : 0;
    }
    return outcome;
}

Server::Outcome Runner::Perform(const ArrangeNodes& asked) {
    Kernel& kernel = mPhone.GetKernel();
    for (const auto& [path, value] : asked.nodes) {
        if (value) {
            kernel.Force(path, *value);
        } else {
            kernel.Remove(path);
        }
        mLedger.Arrange(path, value);
    }
    return {};
}

Server::Outcome Runner::Perform(const ArrangeProperties& asked) {
    for (const auto& [name, value] : asked.properties) mPhone.SetProperty(name, value);
    return {};
}

Server::Outcome Runner::Perform(const Expect& asked) {
    Server::Outcome outcome;
    const std::vector<std::string> failures = Failures(asked);
    outcome.result = failures.empty() ? 0 : -1;
    outcome.text = failures.empty() ? "as expected" : "failed: " + Join(failures);
    const double seconds = std::chrono::duration<double>(mPhone.GetClock().Now()).count();
    for (const std::string& failure : failures) {
        mLedger.AddFinding(fmt::format("{:.3f} s: {}", seconds, failure));
    }
    return outcome;
}

std::vector<std::string> Runner::Failures(const Expect& expected) {
    std::vector<std::string> failures;
    const auto compare = [&failures](const std::string& what, const std::string& is,
                                     const std::string& wanted) {
        if (is == wanted) return;
        failures.push_back(fmt::format("{} is {}, expected {}", what, is, wanted));
    };
    const Kernel& kernel = mPhone.GetKernel();
    if (expected.locks) {
        compare("the number of locks", std::to_string(mPhone.Hal().Held().size()),
                std::to_string(*expected.locks));
    }
    for (const auto& [path, value] : expected.nodes) {
        compare(path, kernel.Has(path) ? kernel.Value(path) : "missing", value);
    }
    for (const TagValue& pair : expected.tags) {
        std::string is = "without a node";
        for (const std::string& path : TagNodes(pair.tag, mDevice)) {
            if (!kernel.Has(path)) continue;
            is = kernel.Value(path);
            break;
        }
        compare(TagLabel(pair.tag, mScenes.ClusterLayout()), is, std::to_string(pair.value));
    }
    if (expected.performance || expected.thermal) {
        const std::map<std::string, int> status = mServer.Status();
        const auto check = [&](const char* key, const char* what, std::optional<int> wanted) {
            if (!wanted) return;
            const auto found = status.find(key);
            compare(what, found == status.end() ? "unknown" : std::to_string(found->second),
                    std::to_string(*wanted));
        };
        check("mPB_Prior", "performance", expected.performance);
        check("mTB_Prior", "the thermal level", expected.thermal);
    }
    return failures;
}

Server::Outcome Runner::Perform(const Wait&) {
    return {};
}

Server::Outcome Runner::Perform(const Repeat&) {
    return {};
}

}  // namespace lab

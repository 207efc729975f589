#include "lab/server/server.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/names/text.h"
#include "lab/server/request_facts.h"

namespace lab {
namespace {

constexpr int kMostCeilings = 133;

// A phone has been up for a while when its policy server starts; boosts are counted by this clock,
// on which 0 means never.
constexpr long kUptimeAtStartMs = 10'000;

const int* DataOf(const std::vector<int>& values) {
    return values.empty() ? nullptr : values.data();
}

// The tags or the values of pairs, as the plug-in takes them.
std::vector<int> Column(const std::vector<TagValue>& pairs, int TagValue::*member) {
    std::vector<int> column;
    for (const TagValue& pair : pairs) column.push_back(pair.*member);
    return column;
}

// What says no more than its number.
Server::Outcome Returned(int result) {
    return {result, std::to_string(result), {}};
}

}  // namespace

Server::Server(Phone& phone, Library& library, SceneFile& scenes)
    : mPhone(phone), mLibrary(library), mScenes(scenes), mLayout(scenes.ClusterLayout()) {}

void Server::Start() {
    mProblems = FindSceneProblems(mScenes);
    std::map<int, RawXmlData*> heads = mScenes.Heads();
    mChains = mLibrary.ParseScenes(heads);
    for (const SceneCommand& command : mScenes.Commands()) {
        if (!command.interactive) continue;
        ActionChain chain = mLibrary.ParseInteractive(mScenes.InteractiveRecord(command));
        if (chain) mChains.emplace(command.id, std::move(chain));
    }
    mAdapter = &mLibrary.Initialize();
}

const Action* Server::FindChain(int cmdId) const {
    const auto found = mChains.find(cmdId);
    return found == mChains.end() ? nullptr : found->second.get();
}

ActionChain Server::Boosted(int cmdId) {
    ActionChain chain = mLibrary.Copy(Chain(cmdId));
    mAdapter->DoAddScalingInfo(*chain);
    return chain;
}

std::optional<int> Server::Read(int tag) {
    int value = INT32_MIN;
    mAdapter->DoPerfGetConfig(1, &tag, &value);
    return value == INT32_MIN ? std::nullopt : std::optional(value);
}

std::string Server::LabelOf(int cmdId) const {
    const SceneCommand* command = mScenes.Find(cmdId);
    return command ? command->Label() : "command " + std::to_string(cmdId);
}

long Server::UptimeMs() const {
    return kUptimeAtStartMs + static_cast<long>(WholeMs(mPhone.GetClock().Now()));
}

std::map<std::string, int> Server::Status() {
    std::map<std::string, int> status;
    mAdapter->GetPerfEventStatus(status);
    return status;
}

// What the server does to a chain before it runs: the task id of the message, and under a thermal
// level the boost frequencies, unless the command has used up its boosts. A request that finds them
// used up is counted too: the plug-in's window moves on with counting alone. Returns a remark.
std::string Server::Complete(Action& first, const DoCommand& request) {
    if (!request.message.empty()) mAdapter->DoAddTaskBoostInfo(first, request.message);
    const int thermal = Status()["mTB_Prior"];
    if (thermal < 1 || request.payload == std::vector<int>{-1}) return "";
    bool mayBreakThrough = false;
    for (const Action* action = &first; action; action = action->next) {
        mayBreakThrough = mayBreakThrough || action->boostLimitLevel >= thermal;
    }
    if (!mayBreakThrough) return "";
    const bool canBoost = mAdapter->CanThermalBoost(request.cmdId);
    mAdapter->UpdateBoostCount(request.cmdId, UptimeMs());
    if (!canBoost) {
        for (Action* action = &first; action; action = action->next) action->breakThrough = 0;
        return ", boost count used up: no breakthrough";
    }
    mAdapter->DoAddScalingInfo(first);
    return "";
}

Server::Outcome Server::Send(const DoCommand& request) {
    Outcome outcome;
    const ActionChain chain = mLibrary.Copy(Chain(request.cmdId));
    const std::string remark = Complete(*chain, request);
    outcome.result = mAdapter->DoAction(*chain, static_cast<unsigned>(request.payload.size()),
                                        DataOf(request.payload));
    outcome.text = std::to_string(outcome.result) + remark;
    outcome.facts =
        FactsOf(request, *chain, mPhone.OnDemandDuration(request.cmdId), outcome.result, mLayout);
    outcome.facts.who = LabelOf(request.cmdId);
    outcome.facts.isBoostUsedUp = !remark.empty();
    return outcome;
}

Server::Outcome Server::Send(const DoInteractive& request) {
    Outcome outcome =
        Returned(mLibrary.DoInterFreqAction(Chain(request.cmdId), DataOf(request.payload)));
    outcome.facts.who = LabelOf(request.cmdId);
    outcome.facts.cmdId = request.cmdId;
    outcome.facts.writesStay = true;
    return outcome;
}

Server::Outcome Server::Send(const SetLimits& request) {
    const std::vector<int> tags = Column(request.tags, &TagValue::tag);
    const std::vector<int> values = Column(request.tags, &TagValue::value);
    Outcome outcome = Returned(mAdapter->DoPerfSetConfig(
        request.clientId, static_cast<int>(tags.size()), DataOf(tags), DataOf(values)));
    outcome.facts = FactsOf(request, outcome.result, mLayout);
    return outcome;
}

Server::Outcome Server::Send(const GetValues& request) {
    Outcome outcome;
    std::vector<int> values(request.tags.size(), INT32_MIN);
    outcome.result = mAdapter->DoPerfGetConfig(static_cast<int>(values.size()), request.tags.data(),
                                               values.data());
    for (size_t i = 0; i < values.size(); ++i) {
        const TagFacts* facts = FindTagFacts(request.tags[i], mLayout);
        const std::string value = values[i] == INT32_MIN ? "cannot be read"
                                  : facts                ? WithUnit(values[i], facts->unit)
                                                         : std::to_string(values[i]);
        outcome.text += fmt::format("{:<32} {}\n", TagLabel(request.tags[i], mLayout), value);
    }
    return outcome;
}

Server::Outcome Server::Send(const GetStatus&) {
    std::map<std::string, int> status = Status();
    return {
        0,
        fmt::format("performance {}, thermal level {}", status["mPB_Prior"], status["mTB_Prior"]),
        {}};
}

Server::Outcome Server::Send(const DumpLimits&) {
    return {0, mLibrary.DumpFreqList(), {}};
}

Server::Outcome Server::Send(const SetStateBits& request) {
    Outcome outcome = Returned(mAdapter->SetState(request.state));
    outcome.facts.state = request.state;
    return outcome;
}

Server::Outcome Server::Send(const SetDebugSwitch& request) {
    return Returned(mAdapter->SetDebug(request.on));
}

Server::Outcome Server::Send(const CountBoost& request) {
    mAdapter->UpdateBoostCount(request.cmdId, UptimeMs());
    return {};
}

Server::Outcome Server::Send(const AskBoost& request) {
    const bool may = mAdapter->CanThermalBoost(request.cmdId);
    return {may ? 1 : 0, may ? "yes" : "no, its count is used up", {}};
}

Server::Outcome Server::Send(const GetCeilings& request) {
    Outcome outcome;
    std::vector<int> tags(kMostCeilings);
    std::vector<int> values(kMostCeilings);
    outcome.result = mAdapter->GetPerfTagValue(Chain(request.cmdId), request.release, tags.data(),
                                               values.data());
    for (size_t i = 0; i < static_cast<size_t>(std::max(outcome.result, 0)); ++i) {
        const TagFacts* facts = FindTagFacts(tags[i], mLayout);
        outcome.text +=
            fmt::format("{:<32} {}\n", TagLabel(tags[i], mLayout),
                        facts && values[i] ? WithUnit(values[i], facts->unit) : "lifted");
    }
    if (outcome.result == 0) outcome.text = "none";
    if (outcome.result < 0) outcome.text = std::to_string(outcome.result);
    return outcome;
}

Server::Outcome Server::Send(const SetSchedLevel& request) {
    const std::vector<int> tags = Column(request.tags, &TagValue::tag);
    const std::vector<int> values = Column(request.tags, &TagValue::value);
    return Returned(mAdapter->DoSchedLevelAction(request.level, static_cast<int>(tags.size()),
                                                 DataOf(tags), DataOf(values)));
}

Server::Outcome Server::Send(const ProbeAffinity& request) {
    return Returned(mAdapter->DoProbeAffinity(static_cast<unsigned>(request.mask), request.pid));
}

Server::Outcome Server::Send(const GetChipType& request) {
    int type = -1;
    const int result = mAdapter->GetChipPlatformType(Chain(request.cmdId), type);
    return {result, fmt::format("type {}", type), {}};
}

}  // namespace lab

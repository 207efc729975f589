#include "fuzz/desk.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "fuzz/finding.h"
#include "lab/names/node_names.h"
#include "lab/server/request_facts.h"

namespace fuzz {
namespace {

constexpr int kPower = 1;
constexpr int kThermal = 2;
constexpr int kCamera = 4;
constexpr int kControlAllLifted = 0;
constexpr int kControlLimitsInForce = 9;
constexpr int kKeptCommand = 5378;
constexpr int kKeptCommandEnd = 5379;
constexpr int kHandOverCommand = 30'000;
constexpr int kHandOverOpcode = 0x40400000;
constexpr int kMostCeilings = 133;
constexpr int kTagRunAgain = 12;

void SetMembers(const OwnAction& from, Action& to) {
    to.cmdId = from.cmdId;
    to.duration = from.durationMs;
    to.boostLimitLevel = from.boostLimitLevel;
    to.tagLen = from.tagLen;
    to.stateMask = from.stateMask;
    to.skip = from.skip;
    to.taskBoost = from.taskBoost;
    to.breakThrough = from.breakThrough;
    to.boostLevels.assign(from.boostLevels.begin(), from.boostLevels.end());
    to.perfList.assign(from.perfList.begin(), from.perfList.end());
}

// A scene that runs itself again ends in a refusal, after its limits are in force.
bool TakesEffect(const Action& scene) {
    bool runsAgain = false;
    for (size_t i = 0; i + 1 < scene.perfList.size(); i += 2) {
        const int tag = scene.perfList[i];
        if (scene.perfList[i + 1] < 0) return false;
        if (tag == kTagRunAgain) {
            runsAgain = true;
        } else if (!lab::IsSharedLimit(tag)) {
            return false;
        }
    }
    return runsAgain;
}

}  // namespace

void Begun::Note(const Deed& deed, int result) {
    const std::lock_guard<std::mutex> guard(mMutex);
    if (const auto* own = std::get_if<RunOwn>(&deed.what)) {
        mOwnCommands.insert(own->actions.front().cmdId);
    }
    const auto* const request = std::get_if<lab::Request>(&deed.what);
    if (request == nullptr) return;
    if (const auto* command = std::get_if<lab::DoCommand>(request)) NoteCommand(*command);
    if (const auto* limits = std::get_if<lab::SetLimits>(request)) NoteLimits(*limits, result);
}

void Begun::NoteCommand(const lab::DoCommand& asked) {
    const bool isOff = asked.payload == std::vector<int>{-1};
    if (asked.payload == std::vector<int>{0} || (asked.cmdId == kKeptCommand && !isOff)) {
        mEvents.insert(asked.cmdId);
    }
    const lab::SceneCommand* const command = mScenes.Find(asked.cmdId);
    const bool isMasked =
        std::any_of(command->elements.begin(), command->elements.end(),
                    [](const auto& element) { return element.stateMask != 0 || element.skip; });
    if (mIsConcurrent || !mIsBoosting || isMasked) return;
    if (isOff) mEvents.erase(asked.cmdId);
    if (asked.cmdId == kKeptCommandEnd) mEvents.erase(kKeptCommand);
}

void Begun::NoteLimits(const lab::SetLimits& asked, int result) {
    if (asked.clientId < 1 || asked.clientId > kCamera || asked.tags.empty()) return;
    const bool isGroup = asked.tags.front().tag == lab::kGroupTag;
    for (const lab::TagValue& pair : asked.tags) {
        if (lab::IsSharedLimit(pair.tag)) mLimits[asked.clientId].insert(pair.tag);
        if (pair.tag != lab::kControlTypeTag || isGroup || result != 0) continue;
        if (pair.value == 0) mIsBoosting = true;
        if (pair.value == 4 || pair.value == 10) mIsBoosting = false;
    }
}

void Begun::Clear() {
    const std::lock_guard<std::mutex> guard(mMutex);
    mEvents.clear();
    mOwnCommands.clear();
    mLimits.clear();
    mIsBoosting = true;
}

bool Begun::IsBoosting() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mIsBoosting;
}

std::set<int> Begun::Events() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mEvents;
}

std::set<int> Begun::OwnCommands() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mOwnCommands;
}

std::map<int, std::set<int>> Begun::Limits() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mLimits;
}

Desk::Desk(const std::string& device, const lab::Phone::Options& options)
    : mDevice(lab::LoadDeviceProfile(device)),
      mScenes(lab::SceneFile::Load(lab::DataFolder() + "/scenes/" + device + ".xml")),
      mLayout(mScenes.ClusterLayout()),
      mPhone(mDevice, options),
      mLibrary(""),
      mServer(mPhone, mLibrary, mScenes),
      mHandle(dlopen(mLibrary.File().c_str(), RTLD_NOW | RTLD_LOCAL)) {
    for (const int tag : kSharedLimits) {
        for (const std::string& path : lab::TagNodes(tag, mDevice)) {
            mLimitNodes[path] = mPhone.GetKernel().Value(path);
        }
    }
    for (const std::string& path : mPhone.GetKernel().Paths()) {
        if (path.ends_with("/online")) mOnlineNodes.push_back(path);
    }
    for (const int tag : AllTags()) {
        if (lab::IsSharedLimit(tag)) continue;
        // One without an opcode has a lock on opcode 0 once a group has named it.
        ++mTagsOfOpcode[lab::FindTagOpcode(tag, mLayout).value_or(0)];
    }
    mAtBoot = std::make_unique<lab::Book>(mDevice, mScenes, mPhone.GetKernel());
    mServer.Start();
    Restart();
}

Desk::~Desk() {
    dlclose(mHandle);
}

void Desk::Restart() {
    mAdapter = &mServer.Restart();
    mBegun.Clear();
}

Desk::Outcome Desk::Perform(const Deed& deed) {
    const bool isBoosting = mBegun.IsBoosting();
    Outcome outcome = std::visit([this](const auto& asked) { return Do(asked); }, deed.what);
    const auto* const request = std::get_if<lab::Request>(&deed.what);
    const bool isCommand = request != nullptr ? std::holds_alternative<lab::DoCommand>(*request)
                                              : std::holds_alternative<RunOwn>(deed.what);
    // Then commands are left alone: they take no lock, limit nothing and end nothing.
    if (isCommand && !isBoosting) outcome.facts = {};
    mBegun.Note(deed, outcome.result);
    return outcome;
}

Desk::Outcome Desk::Do(const lab::Request& request) {
    return std::visit(
        [this](const auto& asked) -> Outcome {
            if constexpr (requires { mServer.Send(asked); }) {
                const Outcome outcome = mServer.Send(asked);
                const bool isCount =
                    std::is_same_v<std::decay_t<decltype(asked)>, lab::AskBoost> ||
                    std::is_same_v<std::decay_t<decltype(asked)>, lab::GetCeilings>;
                Require(isCount ? outcome.result >= 0 && outcome.result <= kMostCeilings
                                : outcome.result == 0 || outcome.result == -1,
                        "a result that the operation does not have");
                return outcome;
            } else {
                if constexpr (requires { asked.msOfCommand; }) {
                    for (const auto& [cmdId, ms] : asked.msOfCommand) {
                        mPhone.SetOnDemandDuration(cmdId, ms);
                    }
                }
                return {};
            }
        },
        request);
}

Desk::Outcome Desk::Do(const RefuseLocks& fate) {
    mPhone.Hal().RefuseNext(fate.count, fate.result);
    Outcome outcome;
    outcome.facts.arrangedRefusals = fate.count;
    return outcome;
}

Desk::Outcome Desk::Do(const BreakNode& fate) {
    mPhone.GetFaults().SetNode(fate.path, fate.fault);
    return {};
}

Desk::Outcome Desk::Do(const BreakTimer&) {
    mPhone.GetFaults().SetTimer(false, true);
    return {};
}

void Desk::Mend() {
    mPhone.Hal().RefuseNext(0, 0);
    mPhone.GetFaults().LiftNodes();
    mPhone.GetFaults().SetTimer(false, false);
    for (const std::string& path : mOnlineNodes) mPhone.GetKernel().Force(path, "1");
}

lab::ActionChain Desk::Make(const RunOwn& asked) {
    lab::ActionChain chain;
    Action* last = nullptr;
    for (const OwnAction& own : asked.actions) {
        RawXmlData element;
        element.name = "own";
        lab::ActionChain made = mLibrary.ParseInteractive(element);
        SetMembers(own, *made);
        if (last == nullptr) {
            chain = std::move(made);
            last = chain.get();
        } else {
            last->next = made.release();
            last = last->next;
        }
    }
    return chain;
}

lab::ActionChain Desk::MakePlain() {
    RunOwn own;
    own.actions.emplace_back();
    own.actions[0].cmdId = kFirstOwnCommand;
    return Make(own);
}

Desk::Outcome Desk::Do(const RunOwn& asked) {
    const lab::ActionChain chain = Make(asked);
    Action* last = chain.get();
    while (last->next != nullptr) last = last->next;
    if (asked.isEndless) last->next = chain.get();
    if (asked.isCompleted) {
        Require(mAdapter->DoAddTaskBoostInfo(*chain, "targetPid=7") == 0, "completion failed");
        Require(mAdapter->DoAddScalingInfo(*chain) == 0, "completion failed");
    }
    Outcome outcome;
    outcome.result = mAdapter->DoAction(*chain, asked.payloadNum,
                                        asked.payload.empty() ? nullptr : asked.payload.data());
    Require(outcome.result == 0 || outcome.result == -1, "DoAction returned neither 0 nor -1");
    last->next = nullptr;
    if (asked.isEndless) return outcome;
    lab::DoCommand facts{chain->cmdId, {}, ""};
    if (asked.payloadNum == 1) facts.payload = asked.payload;
    const bool isDone = outcome.result == 0 || (lab::IsLongScene(*chain) && TakesEffect(*chain));
    outcome.facts = lab::FactsOf(facts, *chain, 0, isDone ? 0 : -1, ClusterLayout());
    return outcome;
}

Desk::Outcome Desk::Do(const HandOver& asked) {
    const std::lock_guard<std::mutex> guard(mHandOverMutex);
    Outcome outcome;
    outcome.facts.mayLock = true;
    outcome.facts.opcodes = {kHandOverOpcode};
    const int list[2] = {kHandOverOpcode, 1};
    const int handle = mPhone.Hal().Acquire(0, 0, list, 2);
    if (handle < 1) return outcome;
    if (asked.asEvent) {
        using Member = void (*)(PerfAdapter*, int, int, int);
        Exported<Member>("_ZN15QcomPerfAdapter18DoEventCacheHandleEiii")(mAdapter, kHandOverCommand,
                                                                         0, handle);
        RunOwn off;
        off.actions.emplace_back();
        off.actions[0].cmdId = kHandOverCommand;
        const int end = -1;
        mAdapter->DoAction(*Make(off), 1, &end);
    } else {
        using Member = int (*)(PerfAdapter*, int);
        const auto check = Exported<Member>("_ZN15QcomPerfAdapter19CheckPerfLockHandleEi");
        Require(check(mAdapter, handle) == 0, "a lock that was ended kept its handle");
    }
    if (!IsHeld(handle)) return outcome;
    const bool mayStay = asked.asEvent && (mBegun.IsConcurrent() || !mBegun.IsBoosting());
    Require(mayStay, "a lock that the server handed over was not ended");
    mPhone.Hal().Release(handle);
    return outcome;
}

bool Desk::IsHeld(int handle) {
    const std::vector<lab::PerfHal::Lock> held = mPhone.Hal().Held();
    return std::any_of(held.begin(), held.end(),
                       [handle](const lab::PerfHal::Lock& lock) { return lock.handle == handle; });
}

std::vector<Deed> Desk::Endings() const {
    std::vector<Deed> deeds;
    const auto add = [&deeds](auto what) { deeds.push_back({0, std::move(what)}); };
    const auto control = [&add](int type) {
        add(lab::Request(lab::SetLimits{kThermal, {{lab::kControlTypeTag, type}}}));
    };
    add(lab::Request(lab::SetStateBits{-1}));
    control(kControlAllLifted);
    for (const int cmdId : mBegun.Events()) {
        const int ending = cmdId == kKeptCommand ? kKeptCommandEnd : cmdId;
        add(lab::Request(lab::DoCommand{ending, {-1}, ""}));
    }
    RunOwn off;
    off.payload = {-1};
    off.payloadNum = 1;
    for (const int cmdId : mBegun.OwnCommands()) {
        OwnAction action;
        action.cmdId = cmdId;
        const bool isScene = cmdId < kFirstOwnCommand;
        if (isScene) {
            for (const int tag : kSharedLimits) {
                action.perfList.insert(action.perfList.end(), {tag, 1});
            }
            action.tagLen = static_cast<int>(kSharedLimits.size());
        }
        off.actions.assign(isScene ? 1 : kMostOwnActions, action);
        add(off);
    }
    // What the camera asks for outlasts its request only in a group without a time limit. It goes
    // first: as long as it counts, the others' limits are merged with it.
    std::map<int, std::set<int>> limits = mBegun.Limits();
    if (const auto camera = limits.find(kCamera); camera != limits.end()) {
        lab::SetLimits lift{kCamera, {{lab::kGroupTag, 0}}};
        for (const int tag : camera->second) lift.tags.push_back({tag, 0});
        add(lab::Request(std::move(lift)));
    }
    add(lab::Request(lab::SetLimits{kCamera, {{lab::kGroupTag, -1}}}));
    // Floors are written back only while limits are in force, also those that scenes asked for.
    control(kControlLimitsInForce);
    limits[kPower].insert(kSharedLimits.begin(), kSharedLimits.end());
    for (const auto& [client, tags] : limits) {
        lab::SetLimits lift{client, {}};
        for (const int tag : tags) lift.tags.push_back({tag, 0});
        add(lab::Request(std::move(lift)));
    }
    control(kControlAllLifted);
    return deeds;
}

std::vector<std::string> Desk::Leftovers() {
    std::vector<std::string> leftovers;
    std::map<int, int> tagsOfOpcode = mTagsOfOpcode;
    int others = 0;
    for (const lab::PerfHal::Lock& lock : mPhone.Hal().Held()) {
        if (lock.until) {
            leftovers.push_back(fmt::format("lock {} runs on", lock.handle));
            continue;
        }
        const bool isTagLock = lock.list.size() == 2;
        if (isTagLock && mAtBoot->IsAtDefault(lock.list[0], lock.list[1])) continue;
        if (isTagLock && tagsOfOpcode[lock.list[0]]-- > 0) continue;
        if (++others == 1) continue;  // the one without a time limit outside events
        leftovers.push_back(fmt::format("lock {} on 0x{:x} = {} and {} more is held for nobody",
                                        lock.handle, static_cast<unsigned>(lock.list[0]),
                                        lock.list[1], lock.list.size() / 2 - 1));
    }
    for (const auto& [path, boot] : mLimitNodes) {
        const lab::Kernel& kernel = mPhone.GetKernel();
        if (kernel.Value(path) == boot || !kernel.Has(path) || IsExplained(path)) continue;
        leftovers.push_back(fmt::format("{} is {} instead of {}", path, kernel.Value(path), boot));
    }
    return leftovers;
}

// A lock that limits something bears on the node, or on its neighbours: ceilings pull floors down.
bool Desk::IsExplained(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/'));
    for (const auto& [other, boot] : mLimitNodes) {
        if (other.substr(0, other.rfind('/')) != folder) continue;
        for (const lab::PerfHal::Claim& claim : mPhone.Hal().ClaimsOn(other)) {
            if (!mAtBoot->IsAtDefault(claim.opcode, claim.value)) return true;
        }
    }
    return false;
}

}  // namespace fuzz

#include "lab/book/node_history.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_values.h"
#include "lab/server/request_facts.h"

namespace lab {
namespace {

// What a report can use of a day's replay.
constexpr size_t kMostEnded = 200;

constexpr int kEventEndCommand = 5379;  // ends what 5378 holds

bool IsOn(const DoCommand& request) {
    return request.payload == std::vector<int>{0};
}
bool IsOff(const DoCommand& request) {
    return request.payload == std::vector<int>{-1};
}

bool IsGroup(const SetLimits& request) {
    return !request.tags.empty() && request.tags.front().tag == kGroupTag;
}

}  // namespace

std::string NodeAsk::ValueText() const {
    if (by != By::kWrite) return BoundText(bound, value, unit);
    return text.empty() ? "" : "= " + text;
}

NodeHistory::NodeHistory(const NodeTarget& target, const SceneFile& scenes, const Kernel& kernel)
    : mTarget(target), mScenes(scenes), mKernel(kernel), mLayout(scenes.ClusterLayout()) {}

void NodeHistory::Heed(const Step& step, const Server::Outcome& outcome) {
    mHeeded.push_back({step, outcome});
}

void NodeHistory::Observe(const Event& event) {
    mNow = event.at;
    if (std::holds_alternative<RequestBegin>(event.what)) {
        BeginRequest();
    } else if (std::holds_alternative<RequestEnd>(event.what)) {
        EndRequest();
        mIsInRequest = false;
    } else if (const auto* line = std::get_if<LogLine>(&event.what)) {
        if (line->priority >= kAndroidError) mErrors.push_back(WithoutNewline(line->text));
    } else if (const auto* acquire = std::get_if<LockAcquire>(&event.what)) {
        OnAcquire(*acquire);
    } else if (const auto* release = std::get_if<LockRelease>(&event.what)) {
        if (release->wasHeld) EndLock(release->handle, WhyReleased());
    } else if (const auto* expire = std::get_if<LockExpire>(&event.what)) {
        EndLock(expire->handle, "expired");
    } else if (const auto* access = std::get_if<NodeAccess>(&event.what)) {
        OnWrite(*access);
    }
}

void NodeHistory::BeginRequest() {
    mIsInRequest = true;
    mIsTouched = false;
    mErrors.clear();
    mRequest = Asked{};
    mRequest.step.text = "the start";
    if (mHeeded.empty()) return;
    mRequest = std::move(mHeeded.front());
    mHeeded.pop_front();
}

void NodeHistory::EndRequest() {
    const Request& request = mRequest.step.request;
    if (const auto* limits = std::get_if<SetLimits>(&request)) {
        OnLimits(*limits);
    } else if (const auto* command = std::get_if<DoCommand>(&request)) {
        OnCommand(*command);
    } else if (const auto* bits = std::get_if<SetStateBits>(&request)) {
        mConditions.SetState(bits->state);
    } else if (const auto* arrange = std::get_if<ArrangeNodes>(&request)) {
        OnArrange(*arrange);
    }
}

// Limits: what a client says about tags.

void NodeHistory::OnLimits(const SetLimits& request) {
    const bool isGroup = IsGroup(request);
    const int result = mRequest.outcome.result;
    const std::string who = ClientLabel(request.clientId);
    for (const TagValue& pair : request.tags) {
        if (pair.tag == kControlTypeTag && !isGroup && result == 0) {
            mConditions.SetControlType(pair.value, mRequest.step.line);
        }
        if (!mTarget.HasTag(pair.tag)) continue;
        NodeAsk ask = TagAsk(NodeAsk::By::kClient, who, pair.tag, pair.value);
        const std::vector<Claim>& claims = mRequest.outcome.facts.claims;
        const bool isClaim = std::any_of(claims.begin(), claims.end(),
                                         [&](const Claim& claim) { return claim.tag == pair.tag; });
        if (result != 0) {
            AddEnded(ask, "refused: " + Errors());
        } else if (isClaim) {
            // Of the camera's words only an untimed group's count later.
            ask.isRemembered = IsArbitrated(pair.tag) && (request.clientId != 4 || isGroup);
            SetClaim(ask,
                     fmt::format("{} by the same client{}",
                                 pair.value == 0 && IsSharedLimit(pair.tag) ? "lifted" : "replaced",
                                 AtLine()));
        } else if (!mIsTouched) {
            AddEnded(ask, "took no lock: " + Errors());
        }
    }
}

// The requester's word on a tag from now on. A word that the manager does not weigh against others
// ends with the next one on its tag, whoever says it.
void NodeHistory::SetClaim(const NodeAsk& ask, const std::string& how) {
    for (size_t i = mInForce.size(); i-- > 0;) {
        const NodeAsk& other = mInForce[i];
        if (other.tag != ask.tag) continue;
        if (other.by == ask.by && other.who == ask.who) {
            EndAsk(i, how);
        } else if (!other.isRemembered) {
            EndAsk(i, fmt::format("replaced by {}'s request{}: such requests for one tag are not "
                                  "weighed, the last one counts",
                                  ask.who, AtLine()));
        }
    }
    if (ask.value != 0 || !IsSharedLimit(ask.tag)) mInForce.push_back(ask);
}

// Commands: what scenes ask for.

void NodeHistory::OnCommand(const DoCommand& request) {
    const SceneCommand* command = mScenes.Find(request.cmdId);
    if (!command) return;
    if (IsLongScene(*command)) return OnLongScene(request, *command);
    for (const SceneElement& element : command->elements) {
        if (IsOff(request)) {
            const std::string skipped = mConditions.WhyPassedOver(element);
            for (NodeAsk& ask : mInForce) {
                if (ask.who != command->Label() || skipped.empty()) continue;
                ask.remark = fmt::format("its end{} was passed over: {}", AtLine(), skipped);
            }
            continue;
        }
        if (mIsTouched) return;
        for (const SceneKey& key : element.keys) {
            const std::optional<int> opcode = FindKeyOpcode(key.name);
            if (!opcode || !mTarget.opcodes.count(*opcode)) continue;
            NodeAsk ask = NewAsk(NodeAsk::By::kLock, command->Label());
            const Resource resource = ResourceOf(*opcode, mLayout);
            ask.opcode = *opcode;
            ask.unit = resource.unit;
            ask.bound = resource.bound;
            ask.value = HalValueOfKey(*opcode, key.value);
            AddEnded(ask, "took no lock: " + WhyNoLock(element));
        }
    }
}

void NodeHistory::OnLongScene(const DoCommand& request, const SceneCommand& command) {
    const SceneElement& element = command.elements.front();
    for (const SceneKey& key : element.keys) {
        const std::optional<int> tag = FindTag(key.name, mLayout);
        if (!tag || !mTarget.HasTag(*tag)) continue;
        const int value = std::atoi(key.value.c_str());
        NodeAsk ask = TagAsk(NodeAsk::By::kScene, command.Label(), *tag, value);
        ask.isRemembered = true;
        const std::string skipped = mConditions.WhyPassedOver(element);
        if (mRequest.outcome.result != 0) {
            AddEnded(ask, "refused: " + Errors());
        } else if (IsOn(request) && skipped.empty()) {
            SetClaim(ask, "asked again" + AtLine());
        } else if (IsOn(request)) {
            AddEnded(ask, "passed over: " + skipped);
        } else if (skipped.empty()) {
            ask.value = 0;
            SetClaim(ask, "its event ended" + AtLine());
        } else {
            for (NodeAsk& held : mInForce) {
                if (held.who != ask.who) continue;
                held.remark = fmt::format("its end{} was passed over: {}", AtLine(), skipped);
            }
        }
    }
}

std::string NodeHistory::WhyNoLock(const SceneElement& element) const {
    const std::string& told = mRequest.outcome.text;
    if (told.starts_with("failed: ")) return told.substr(std::strlen("failed: "));
    const std::string skipped = mConditions.WhyPassedOver(element);
    if (!skipped.empty()) return skipped;
    return mErrors.empty() ? "its lock takes 32 pairs, and this one stands behind them" : Errors();
}

// Locks.

// A lock that carries one tag's arbitrated value, not one of a command or of a group.
bool NodeHistory::IsTagLock(const LockAcquire& acquire) const {
    if (acquire.list.size() != 2 || acquire.durationMs != 0) return false;
    const RequestFacts& facts = mRequest.outcome.facts;
    if (std::holds_alternative<DoCommand>(mRequest.step.request)) return !facts.claims.empty();
    return std::none_of(facts.groupTags.begin(), facts.groupTags.end(),
                        [&](int tag) { return FindTagOpcode(tag, mLayout) == acquire.list[0]; });
}

void NodeHistory::OnAcquire(const LockAcquire& acquire) {
    if (acquire.returned >= 1) {
        // What a renewal no longer names.
        for (size_t i = mInForce.size(); i-- > 0;) {
            if (mInForce[i].handle != acquire.returned) continue;
            const auto& list = acquire.list;
            bool isNamed = false;
            for (size_t at = 0; at + 1 < list.size(); at += 2) {
                isNamed = isNamed ||
                          (list[at] == mInForce[i].opcode && list[at + 1] == mInForce[i].value);
            }
            if (!isNamed) EndAsk(i, "its lock was renewed with another list" + AtLine());
        }
    }
    for (size_t at = 0; at + 1 < acquire.list.size(); at += 2) {
        if (!mTarget.opcodes.count(acquire.list[at])) continue;
        mIsTouched = true;
        OnPair(acquire, acquire.list[at], acquire.list[at + 1]);
    }
}

void NodeHistory::OnPair(const LockAcquire& acquire, int opcode, int value) {
    if (IsTagLock(acquire)) {
        mRefusedTags.erase(opcode);
        mTagLocks.erase(opcode);
        if (acquire.returned < 1) {
            mRefusedTags.insert(opcode);
        } else {
            mTagLocks[opcode] = {acquire.returned, value, mRequest.step.text, mRequest.step.line,
                                 mNow};
        }
        return;
    }
    NodeAsk ask = NewAsk(NodeAsk::By::kLock, LockHolder());
    const Resource resource = ResourceOf(opcode, mLayout);
    ask.opcode = opcode;
    ask.value = value;
    ask.unit = resource.unit;
    ask.bound = resource.bound;
    ask.handle = acquire.returned;
    ask.remark = WhyNoBreakthrough(opcode);
    if (acquire.durationMs > 0) ask.until = mNow + std::chrono::milliseconds(acquire.durationMs);
    if (acquire.returned < 1) {
        AddEnded(ask, fmt::format("the HAL refused the lock with {}", acquire.returned));
        return;
    }
    for (NodeAsk& held : mInForce) {
        if (held.handle != ask.handle || held.opcode != opcode) continue;
        held.until = ask.until;
        held.remark = fmt::format("renewed at {} s{}", SecondsText(mNow), AtLine());
        return;
    }
    mInForce.push_back(ask);
}

// Why the command's lock lifts none of the thermal limits on the node; empty when it does, or when
// there are none.
std::string NodeHistory::WhyNoBreakthrough(int opcode) const {
    const auto* request = std::get_if<DoCommand>(&mRequest.step.request);
    const SceneCommand* command = request ? mScenes.Find(request->cmdId) : nullptr;
    if (!command || mTarget.path.find("/scaling_m") == std::string::npos) return "";
    if (mRequest.outcome.text.find("boost count used up") != std::string::npos) {
        return "lifts no thermal limit: its boosts of this period are used up";
    }
    for (const SceneElement& element : command->elements) {
        for (const SceneKey& key : element.keys) {
            if (FindKeyOpcode(key.name) == opcode) return mConditions.WhyNoBreakthrough(element);
        }
    }
    return "";
}

std::string NodeHistory::LockHolder() const {
    const Request& request = mRequest.step.request;
    if (const auto* command = std::get_if<DoCommand>(&request)) {
        const SceneCommand* found = mScenes.Find(command->cmdId);
        return found ? found->Label() : "command " + std::to_string(command->cmdId);
    }
    if (const auto* limits = std::get_if<SetLimits>(&request)) {
        return ClientLabel(limits->clientId) + "'s group";
    }
    return "the plug-in";
}

void NodeHistory::EndLock(int handle, const std::string& how) {
    std::erase_if(mTagLocks, [&](const auto& lock) {
        if (lock.second.handle != handle) return false;
        mTagReleasers[lock.first] = fmt::format("'{}'{}", mRequest.step.text, AtLine());
        return true;
    });
    for (size_t i = mInForce.size(); i-- > 0;) {
        if (mInForce[i].by == NodeAsk::By::kLock && mInForce[i].handle == handle) EndAsk(i, how);
    }
}

// Why a lock of a command or of a group was released by the request under way.
std::string NodeHistory::WhyReleased() const {
    const Request& request = mRequest.step.request;
    if (const auto* command = std::get_if<DoCommand>(&request)) {
        if (IsOff(*command) || command->cmdId == kEventEndCommand) {
            return "its event ended" + AtLine();
        }
        return fmt::format("replaced by '{}'{}: untimed commands share one lock",
                           mRequest.step.text, AtLine());
    }
    if (const auto* limits = std::get_if<SetLimits>(&request); limits && IsGroup(*limits)) {
        return (limits->tags.front().value < 0 ? "its group was cancelled"
                                               : "replaced by the next group") +
               AtLine();
    }
    return fmt::format("released during '{}'{}", mRequest.step.text, AtLine());
}

// Writes without a lock.

void NodeHistory::OnWrite(const NodeAccess& access) {
    if (access.kind != NodeAccess::Kind::kWrite || access.byHal) return;
    if (access.path != mTarget.path && !mKernel.IsSameNode(access.path, mTarget.path)) return;
    NodeAsk ask = NewAsk(NodeAsk::By::kWrite, "the plug-in's write");
    ask.text = access.requested;
    if (!mIsInRequest) ask.request = "the end of the breakthrough after " + ask.request;
    if (access.error != 0) {
        const std::string how =
            std::string("refused by the kernel: ") + std::strerror(access.error);
        // The plug-in tries the node under the name of every CPU that shares it.
        const bool isSaid = !mEnded.empty() && mEnded.back().how == how &&
                            mEnded.back().at == mNow && mEnded.back().ask.request == ask.request;
        if (!isSaid) AddEnded(ask, how);
        return;
    }
    // Where locks reach the node too, a write goes along with them.
    if (mLastWrite && mTarget.opcodes.empty()) {
        AddEnded(*mLastWrite, "overwritten by '" + ask.request + "'" + AtLine());
    }
    mLastWrite = ask;
}

void NodeHistory::OnArrange(const ArrangeNodes& request) {
    for (const auto& [path, value] : request.nodes) {
        if (path != mTarget.path && !mKernel.IsSameNode(path, mTarget.path)) continue;
        NodeAsk ask = NewAsk(NodeAsk::By::kWrite, "the scenario's node step");
        ask.text = value.value_or("taken away");
        mLastWrite = ask;
    }
}

NodeAsk NodeHistory::NewAsk(NodeAsk::By by, const std::string& who) const {
    NodeAsk ask;
    ask.by = by;
    ask.who = who;
    ask.request = mRequest.step.text;
    ask.line = mRequest.step.line;
    ask.since = mNow;
    return ask;
}

NodeAsk NodeHistory::TagAsk(NodeAsk::By by, const std::string& who, int tag, int value) const {
    NodeAsk ask = NewAsk(by, who);
    ask.tag = tag;
    ask.opcode = FindTagOpcode(tag, mLayout).value_or(0);
    ask.value = value;
    if (const TagFacts* facts = FindTagFacts(tag, mLayout)) {
        ask.unit = facts->unit;
        ask.bound = facts->bound;
    }
    return ask;
}

void NodeHistory::EndAsk(size_t index, const std::string& how) {
    AddEnded(mInForce[index], how);
    mInForce.erase(mInForce.begin() + static_cast<std::ptrdiff_t>(index));
}

void NodeHistory::AddEnded(const NodeAsk& ask, const std::string& how) {
    mEnded.push_back({ask, mNow, how});
    if (mEnded.size() > kMostEnded) mEnded.pop_front();
}

const NodeHistory::TagLock* NodeHistory::FindTagLock(int opcode) const {
    const auto found = mTagLocks.find(opcode);
    return found == mTagLocks.end() ? nullptr : &found->second;
}

std::string NodeHistory::WhoReleasedTag(int opcode) const {
    const auto found = mTagReleasers.find(opcode);
    return found == mTagReleasers.end() ? "" : found->second;
}

std::string NodeHistory::Errors() const {
    std::vector<std::string> distinct;
    for (const std::string& error : mErrors) {
        // Said for every tag that held no lock before: no reason for anything.
        if (error.find("not registerd") != std::string::npos) continue;
        const std::string quoted = "'" + error + "'";
        if (std::find(distinct.begin(), distinct.end(), quoted) == distinct.end()) {
            distinct.push_back(quoted);
        }
    }
    if (distinct.empty()) return "the plug-in gives no reason in its log";
    return "the plug-in says " + Join(distinct);
}

std::string NodeHistory::AtLine() const {
    return mRequest.step.line ? fmt::format(" (line {})", mRequest.step.line) : "";
}

}  // namespace lab

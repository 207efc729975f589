#include "lab/book/book.h"

#include <fmt/format.h>

#include <algorithm>
#include <type_traits>

#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

double Seconds(Time time) {
    return std::chrono::duration<double>(time).count();
}

// Present frequencies follow everything and are nobody's; a policy's folder is another name of what
// its CPUs have.
bool IsUnwatched(const std::string& path) {
    return path.find("cur_freq") != std::string::npos ||
           path.find("/cpufreq/policy") != std::string::npos;
}

// Shifts of the load: a 0 is no value of theirs and leaves the last one in force.
bool IgnoresZero(int tag) {
    return tag >= 105 && tag <= 107;
}

}  // namespace

bool IsSharedLimit(int tag) {
    switch (tag) {
        case 0:
        case 1:
        case 3:
        case 4:
        case 6:
        case 7:
        case 9:
        case 10:
            return true;
        default:
            return false;
    }
}

Ledger::Ledger(const DeviceProfile& device, Layout layout, const Kernel& kernel)
    : mDevice(device), mLayout(layout), mKernel(kernel) {
    mRequests[0] = RequestFacts{};
    mRequests[0].text = "the start";
    AtBoot atBoot;
    for (const std::string& path : kernel.Paths()) {
        if (!IsUnwatched(path)) atBoot.values[path] = kernel.Value(path);
    }
    for (int tag = 0; tag <= kHighestTag; ++tag) {
        for (const std::string& path : TagNodes(tag, device))
            atBoot.tagsOfNode[path].push_back(tag);
    }
    mAtBoot = std::make_shared<const AtBoot>(std::move(atBoot));
}

void Ledger::Announce(RequestFacts facts) {
    mAnnounced.push_back(std::move(facts));
}

void Ledger::Arrange(const std::string& path, const std::optional<std::string>& value) {
    const auto changed = std::make_shared<AtBoot>(*mAtBoot);
    mAtBoot = changed;
    if (!value) {
        changed->values.erase(path);
        return;
    }
    for (auto& [known, boot] : changed->values) {
        if (mKernel.IsSameNode(known, path)) boot = *value;
    }
    if (!IsUnwatched(path)) changed->values[path] = *value;
}

void Ledger::Observe(const Event& event) {
    std::visit(
        [&](const auto& what) {
            using Kind = std::decay_t<decltype(what)>;
            if constexpr (std::is_same_v<Kind, RequestBegin>) {
                BeginRequest();
            } else if constexpr (std::is_same_v<Kind, RequestEnd>) {
                EndRequest();
            } else if constexpr (std::is_same_v<Kind, LockAcquire>) {
                OnAcquire(what, event.at);
            } else if constexpr (std::is_same_v<Kind, LockRelease> ||
                                 std::is_same_v<Kind, LockExpire>) {
                Forget(what.handle);
            } else if constexpr (std::is_same_v<Kind, NodeAccess>) {
                if (what.kind == NodeAccess::Kind::kWrite && what.error == 0) {
                    mWrites[what.path] = {mRequest, what.byHal};
                }
            }
        },
        event.what);
}

void Ledger::Forget(int handle) {
    mOwners.erase(handle);
    mTagOfLock.erase(handle);
}

void Ledger::BeginRequest() {
    ++mRequest;
    mInRequest = true;
    mTookLock = false;
    mTookUntimedLock = false;
    mLockedTags.clear();
    if (mAnnounced.empty()) return;
    mRequests[mRequest] = std::move(mAnnounced.front());
    mAnnounced.pop_front();
    mRefusalsLeft = mRequests[mRequest].arrangedRefusals.value_or(mRefusalsLeft);
}

void Ledger::EndRequest() {
    mInRequest = false;
    const RequestFacts& facts = mRequests[mRequest];
    for (const std::string& name : facts.ended) mStanding.erase(name);
    if (!facts.standing.empty() && mTookLock) {
        // What has a time limit replaces nothing.
        if (facts.replaces && mTookUntimedLock) mStanding[facts.standing].clear();
        mStanding[facts.standing].insert(mRequest);
    }
    for (const Claim& claim : facts.claims) {
        if (claim.value == 0 && IgnoresZero(claim.tag)) continue;
        mClaims[{claim.holder, claim.tag}] = claim.value;
        mLastWord[claim.tag] = claim.value;
    }
    // A long run would keep every request; those that nothing belongs to are forgotten.
    if (mRequest % 1024 != 0) return;
    std::set<size_t> needed = {0, mRequest};
    for (const auto& [handle, request] : mOwners) needed.insert(request);
    for (const auto& [path, write] : mWrites) needed.insert(write.request);
    for (auto& [name, requests] : mStanding) {
        std::erase_if(requests, [&](size_t request) { return !needed.count(request); });
    }
    std::erase_if(mRequests, [&](const auto& entry) { return !needed.count(entry.first); });
}

void Ledger::OnAcquire(const LockAcquire& acquire, Time at) {
    mTookLock = true;
    mTookUntimedLock = mTookUntimedLock || acquire.durationMs == 0;
    const RequestFacts& facts = mRequests[mRequest];
    if (acquire.returned < 1) {
        if (mRefusalsLeft > 0) {
            --mRefusalsLeft;
        } else {
            mFindings.push_back(
                fmt::format("{:.3f} s: the HAL refused a lock with {}, and no step "
                            "arranged it, during {}",
                            Seconds(at), acquire.returned, Asker(mRequest)));
        }
        return;
    }
    mOwners[acquire.returned] = mRequest;
    CheckAsked(acquire, at);
    if (acquire.durationMs == 0 && IsTagLock(facts, acquire.list)) {
        const int tag = TagOf(facts, acquire.list);
        mTagOfLock[acquire.returned] = tag;
        mLockedTags.insert(tag);
        mTagHandles[tag] = acquire.returned;
    }
}

void Ledger::CheckAsked(const LockAcquire& acquire, Time at) {
    const RequestFacts& facts = mRequests[mRequest];
    if (!mInRequest || !facts.mayLock) {
        mFindings.push_back(fmt::format("{:.3f} s: lock {} was taken {} {}, which asks for none",
                                        Seconds(at), acquire.returned,
                                        mInRequest ? "during" : "after", Asker(mRequest)));
        return;
    }
    for (size_t i = 0; i + 1 < acquire.list.size(); i += 2) {
        if (facts.opcodes.count(acquire.list[i])) continue;
        mFindings.push_back(fmt::format(
            "{:.3f} s: lock {} names {}, which {} does not ask for", Seconds(at), acquire.returned,
            ResourceOf(acquire.list[i], mLayout).name, Asker(mRequest)));
    }
}

// A limit gets a lock for each tag, except those that a group's one lock holds.
bool Ledger::IsTagLock(const RequestFacts& owner, const std::vector<int>& list) const {
    if (list.size() != 2 || (owner.claims.empty() && owner.groupTags.empty())) return false;
    for (int tag : owner.groupTags) {
        if (FindTagOpcode(tag, mLayout).value_or(0) == list[0]) return false;
    }
    return true;
}

// The tag that a lock of the request under way belongs to. Some tags share an opcode: then it is
// the one with this value, at best one that has no lock yet.
int Ledger::TagOf(const RequestFacts& owner, const std::vector<int>& list) const {
    std::optional<int> found;
    int best = -1;
    for (const Claim& claim : owner.claims) {
        if (FindTagOpcode(claim.tag, mLayout) != list[0]) continue;
        const int fit = (HalValue(claim.tag, claim.value) == list[1] ? 2 : 0) +
                        (mLockedTags.count(claim.tag) ? 0 : 1);
        if (fit <= best) continue;
        best = fit;
        found = claim.tag;
    }
    return found ? *found : FindOpcodeTag(list[0], mLayout).value_or(-1);
}

const RequestFacts* Ledger::Owner(int handle) const {
    const auto owner = mOwners.find(handle);
    if (owner == mOwners.end()) return nullptr;
    const auto request = mRequests.find(owner->second);
    return request == mRequests.end() ? nullptr : &request->second;
}

std::string Ledger::Asker(size_t request) const {
    const auto found = mRequests.find(request);
    if (found == mRequests.end()) return "an earlier request";
    const RequestFacts& facts = found->second;
    if (facts.line == 0) return facts.text;
    return fmt::format("\"{}\" (line {})", facts.text, facts.line);
}

std::vector<std::string> Ledger::Findings(const PerfHal& hal) const {
    std::vector<std::string> findings = mFindings;
    for (const PerfHal::Lock& lock : hal.Held()) {
        if (lock.until) continue;  // ends by itself
        const std::string why = WhyLeaked(lock);
        if (!why.empty()) {
            findings.push_back(
                fmt::format("lock {} is held until released, but {}", lock.handle, why));
        }
    }
    AddNodeFindings(hal, findings);
    return findings;
}

std::string Ledger::WhyLeaked(const PerfHal::Lock& lock) const {
    const auto owner = mOwners.find(lock.handle);
    if (owner == mOwners.end()) return "no request took it";
    // A tag without an opcode, which a group made known, has a lock that drives nothing.
    if (lock.list.size() == 2 && lock.list[0] == 0) return "";
    const RequestFacts& facts = mRequests.at(owner->second);
    const auto tag = mTagOfLock.find(lock.handle);
    if (tag != mTagOfLock.end()) return WhyTagLeaked(lock, tag->second);
    const auto standing = mStanding.find(facts.standing);
    if (standing != mStanding.end() && standing->second.count(owner->second)) return "";
    return Asker(owner->second) + ", which took it, is over";
}

std::string Ledger::WhyTagLeaked(const PerfHal::Lock& lock, int tag) const {
    const auto newest = mTagHandles.find(tag);
    if (newest != mTagHandles.end() && newest->second != lock.handle) {
        return fmt::format("lock {} has replaced it for {}", newest->second,
                           TagLabel(tag, mLayout));
    }
    const int value = lock.list[1];
    if (!IsSharedLimit(tag)) {
        const auto word = mLastWord.find(tag);
        if (word != mLastWord.end() && word->second == value) return "";
        return fmt::format("nobody asks for {} = {}", TagLabel(tag, mLayout), value);
    }
    const TagFacts* facts = FindTagFacts(tag, mLayout);
    const std::optional<int> bound = Bound(tag);
    if (!facts || !bound) return "";
    const bool isCeiling = facts->bound == lab::Bound::kCeiling;
    if (isCeiling ? value >= *bound : value <= *bound) return "";
    return fmt::format("it keeps {} {} {} MHz while requests in force allow {} MHz", facts->name,
                       isCeiling ? "<=" : ">=", value, *bound);
}

// What the requests in force make of a shared limit, in the HAL's unit: the lowest ceiling or the
// highest floor that somebody asks for, else the value after boot.
std::optional<int> Ledger::Bound(int tag) const {
    const TagFacts* facts = FindTagFacts(tag, mLayout);
    if (!facts) return std::nullopt;
    std::optional<int> bound;
    for (const auto& [key, value] : mClaims) {
        if (key.second != tag || value <= 0) continue;
        const int asked = HalValue(tag, value);
        if (!bound) {
            bound = asked;
        } else {
            bound = facts->bound == lab::Bound::kCeiling ? std::min(*bound, asked)
                                                         : std::max(*bound, asked);
        }
    }
    return bound ? bound : BootValue(tag);
}

std::optional<int> Ledger::BootValue(int tag) const {
    for (const std::string& path : TagNodes(tag, mDevice)) {
        const auto boot = mAtBoot->values.find(path);
        if (boot == mAtBoot->values.end()) continue;
        const std::optional<int64_t> value = ParseNumber(boot->second);
        if (value && *value <= INT32_MAX) return HalValue(tag, static_cast<int>(*value));
    }
    return std::nullopt;
}

bool Ledger::IsAtDefault(int opcode, int value) const {
    const std::optional<int> tag = FindOpcodeTag(opcode, mLayout);
    if (!tag || !IsSharedLimit(*tag)) return false;
    const std::optional<int> boot = BootValue(*tag);
    if (!boot) return false;
    // To the HAL a negative frequency is the highest one.
    const auto asked = static_cast<uint32_t>(value);
    const auto limit = static_cast<uint32_t>(*boot);
    return FindTagFacts(*tag, mLayout)->bound == lab::Bound::kCeiling ? asked >= limit
                                                                      : asked <= limit;
}

bool Ledger::IsAsked(int tag) const {
    for (const auto& [key, value] : mClaims) {
        if (key.second == tag && (value > 0 || !IsSharedLimit(tag))) return true;
    }
    return false;
}

bool Ledger::IsExplained(const std::string& path, const PerfHal& hal) const {
    if (const Write* write = FindWrite(path)) {
        const auto request = mRequests.find(write->request);
        if (request != mRequests.end() && request->second.writesStay) return true;
    }
    if (!hal.ClaimsOn(path).empty()) return true;
    // Two tags may reach one node under the names of different CPUs.
    const auto& tagsOfNode = mAtBoot->tagsOfNode;
    return std::any_of(tagsOfNode.begin(), tagsOfNode.end(), [&](const auto& entry) {
        const bool isNode = entry.first == path || mKernel.IsSameNode(entry.first, path);
        return isNode && std::any_of(entry.second.begin(), entry.second.end(),
                                     [&](int tag) { return IsExplainedBy(tag, hal); });
    });
}

bool Ledger::IsExplainedBy(int tag, const PerfHal& hal) const {
    if (IsAsked(tag)) return true;
    // A ceiling below the floor pulls the effective floor down with it.
    const int ceiling = tag + 1;
    if (!IsSharedLimit(tag) || !IsSharedLimit(ceiling)) return false;
    if (IsAsked(ceiling)) return true;
    const std::vector<std::string> nodes = TagNodes(ceiling, mDevice);
    return std::any_of(nodes.begin(), nodes.end(),
                       [&hal](const auto& node) { return !hal.ClaimsOn(node).empty(); });
}

const Ledger::Write* Ledger::FindWrite(const std::string& path) const {
    if (const auto exact = mWrites.find(path); exact != mWrites.end()) return &exact->second;
    for (const auto& [written, write] : mWrites) {
        if (mKernel.IsSameNode(written, path)) return &write;
    }
    return nullptr;
}

void Ledger::AddNodeFindings(const PerfHal& hal, std::vector<std::string>& findings) const {
    std::vector<std::string> told;  // the CPUs of a cluster share their nodes: one line for all
    for (const auto& entry : mAtBoot->values) {
        const std::string& path = entry.first;
        const std::string& boot = entry.second;
        const std::string now = mKernel.Value(path);
        if (now == boot || !mKernel.Has(path) || IsExplained(path, hal)) continue;
        const bool isTold = std::any_of(told.begin(), told.end(), [&](const std::string& other) {
            return mKernel.IsSameNode(other, path);
        });
        if (isTold) continue;
        told.push_back(path);
        std::string who = "nobody is seen to have written it";
        if (const Write* write = FindWrite(path)) {
            who = fmt::format("last written by {} during {}",
                              write->byHal ? "the HAL" : "the plug-in", Asker(write->request));
        }
        findings.push_back(fmt::format(
            "{} stays at {} instead of {} {}, though no request in force asks for it; {}",
            ShortNode(path), now, boot, NodeUnit(path), who));
    }
}

}  // namespace lab

// What is wrong at the end of a run: locks and node values that no request in force asks for.
#include <fmt/format.h>

#include <algorithm>

#include "lab/book/book.h"
#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"

namespace lab {

std::string Book::Asker(const RequestPtr& request) {
    if (request->line == 0) return request->text;
    return fmt::format("\"{}\"{}", request->text, AtLine(request->line));
}

std::vector<RunFinding> Book::Findings() const {
    std::vector<RunFinding> findings = mFindings;
    for (const auto& [handle, lock] : mLocks) {
        if (lock.until) continue;  // ends by itself
        const std::string why = WhyLeaked(lock);
        if (!why.empty()) {
            findings.push_back(
                {fmt::format("lock {} is held until released, but {}", lock.handle, why),
                 lock.since, lock.request->number, lock.number});
        }
    }
    AddNodeFindings(findings);
    return findings;
}

std::string Book::WhyLeaked(const BookedLock& lock) const {
    // A tag without an opcode, which a group made known, has a lock that drives nothing.
    if (lock.list.size() == 2 && lock.list[0] == 0) return "";
    if (lock.tag >= 0) return WhyTagLeaked(lock);
    const RequestFacts* facts = lock.request->facts.get();
    const auto standing = facts ? mStanding.find(facts->standing) : mStanding.end();
    if (standing != mStanding.end() && standing->second.count(lock.request->number)) return "";
    return Asker(lock.request) + ", which took it, is over";
}

std::string Book::WhyTagLeaked(const BookedLock& lock) const {
    const int tag = lock.tag;
    const int newest = mTagHandles.at(tag);
    if (newest != lock.handle) {
        return fmt::format("lock {} has replaced it for {}", newest, TagLabel(tag, mLayout));
    }
    const int value = lock.list[1];
    if (!IsSharedLimit(tag)) {
        const auto word = mLastWord.find(tag);
        if (word != mLastWord.end() && word->second == value) return "";
        return fmt::format("nobody asks for {} = {}", TagLabel(tag, mLayout), value);
    }
    const bool hasScene = std::any_of(mWords.begin(), mWords.end(), [tag](const Ask& word) {
        return word.tag == tag && word.by == Ask::By::kScene;
    });
    if (hasScene && RefusedWord(lock)) return "";
    const TagFacts* facts = FindTagFacts(tag, mLayout);
    const std::optional<int> bound = BoundOf(tag);
    if (!facts || !bound) return "";
    const bool isCeiling = facts->bound == Bound::kCeiling;
    if (isCeiling ? value >= *bound : value <= *bound) return "";
    return fmt::format("it keeps {} {} {} MHz while requests in force allow {} MHz", facts->name,
                       isCeiling ? "<=" : ">=", value, *bound);
}

// What the requests in force make of a shared limit, in the HAL's unit: the lowest ceiling or the
// highest floor that somebody asks for, else the value after boot.
std::optional<int> Book::BoundOf(int tag) const {
    std::optional<int> bound;
    for (const Ask& word : mWords) {
        if (word.tag != tag || word.value <= 0 || word.isOver) continue;
        const int asked = HalValue(tag, static_cast<int>(word.value));
        bound = !bound                          ? asked
                : word.bound == Bound::kCeiling ? std::min(*bound, asked)
                                                : std::max(*bound, asked);
    }
    return bound ? bound : BootValue(tag);
}

std::optional<int> Book::BootValue(int tag) const {
    for (const std::string& path : TagNodes(tag, mDevice)) {
        const auto boot = mAtBoot->values.find(path);
        if (boot == mAtBoot->values.end()) continue;
        const std::optional<int64_t> value = ParseNumber(boot->second);
        if (value && *value <= INT32_MAX) return HalValue(tag, static_cast<int>(*value));
    }
    return std::nullopt;
}

bool Book::IsAtDefault(int opcode, int value) const {
    const std::optional<int> tag = FindOpcodeTag(opcode, mLayout);
    if (!tag || !IsSharedLimit(*tag)) return false;
    const std::optional<int> boot = BootValue(*tag);
    if (!boot) return false;
    // To the HAL a negative frequency is the highest one.
    const auto asked = static_cast<uint32_t>(value);
    const auto limit = static_cast<uint32_t>(*boot);
    return FindTagFacts(*tag, mLayout)->bound == Bound::kCeiling ? asked >= limit : asked <= limit;
}

bool Book::IsAsked(int tag) const {
    return std::any_of(mWords.begin(), mWords.end(), [tag](const Ask& word) {
        return word.tag == tag && !word.isOver && (word.value > 0 || !IsSharedLimit(tag));
    });
}

bool Book::IsExplained(const std::string& path) const {
    const Writes* writes = FindWrites(path);
    const RequestFacts* facts = writes ? writes->request->facts.get() : nullptr;
    if ((facts && facts->writesStay) || !ClaimsOn(path).empty()) return true;
    // Two tags may reach one node under the names of different CPUs.
    const auto& tagsOfNode = mAtBoot->tagsOfNode;
    return std::any_of(tagsOfNode.begin(), tagsOfNode.end(), [&](const auto& entry) {
        const bool isNode = entry.first == path || mKernel.IsSameNode(entry.first, path);
        return isNode && std::any_of(entry.second.begin(), entry.second.end(),
                                     [&](int tag) { return IsExplainedBy(tag); });
    });
}

bool Book::IsExplainedBy(int tag) const {
    if (IsAsked(tag)) return true;
    // A ceiling below the floor pulls the effective floor down with it.
    const int ceiling = tag + 1;
    if (!IsSharedLimit(tag) || !IsSharedLimit(ceiling)) return false;
    if (IsAsked(ceiling)) return true;
    const std::vector<std::string> nodes = TagNodes(ceiling, mDevice);
    return std::any_of(nodes.begin(), nodes.end(),
                       [this](const auto& node) { return !ClaimsOn(node).empty(); });
}

const Book::Writes* Book::FindWrites(const std::string& path) const {
    if (const auto exact = mWrites.find(path); exact != mWrites.end()) return &exact->second;
    for (const auto& [written, writes] : mWrites) {
        if (writes.request && mKernel.IsSameNode(written, path)) return &writes;
    }
    return nullptr;
}

void Book::AddNodeFindings(std::vector<RunFinding>& findings) const {
    std::vector<std::string> told;  // the CPUs of a cluster share their nodes: one line for all
    for (const auto& entry : mAtBoot->values) {
        const std::string& path = entry.first;
        const std::string& boot = entry.second;
        const std::string now = mKernel.Value(path);
        if (now == boot || !mKernel.Has(path) || IsExplained(path)) continue;
        const bool isTold = std::any_of(told.begin(), told.end(), [&](const std::string& other) {
            return mKernel.IsSameNode(other, path);
        });
        if (isTold) continue;
        told.push_back(path);
        std::string who = "nobody is seen to have written it";
        if (const Writes* writes = FindWrites(path)) {
            who = fmt::format("last written by {} during {}",
                              writes->byHal ? "the HAL" : "the plug-in", Asker(writes->request));
        }
        findings.push_back({fmt::format(
            "{} stays at {} instead of {} {}, though no request in force asks for it; {}",
            ShortNode(path), now, boot, NodeUnit(path), who)});
    }
}

}  // namespace lab

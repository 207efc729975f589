// Who asks for what on a node, by words, locks and writes, and who asked before.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "lab/book/book.h"
#include "lab/names/resource_names.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {
namespace {

// What a report can use of a day's replay.
constexpr size_t kMostEnded = 200;

}  // namespace

Ask Book::NewAsk(Ask::By by, const std::string& who) const {
    Ask ask;
    ask.by = by;
    ask.who = who;
    ask.request = mRequest;
    ask.since = mNow;
    ask.order = mOrder;
    return ask;
}

Ask Book::TagAsk(Ask::By by, int tag, int value) const {
    Ask ask = NewAsk(by, Facts().who);
    ask.tag = tag;
    ask.opcode = FindTagOpcode(tag, mLayout).value_or(0);
    ask.value = value;
    if (const TagFacts* facts = FindTagFacts(tag, mLayout)) {
        ask.unit = facts->unit;
        ask.bound = facts->bound;
    }
    return ask;
}

Ask Book::PairAsk(const BookedLock& lock, size_t at) const {
    Ask ask;
    ask.who = lock.owner;
    ask.request = lock.takenBy;
    ask.opcode = lock.list[at];
    ask.value = lock.list[at + 1];
    const Resource resource = ResourceOf(ask.opcode, mLayout);
    ask.unit = resource.unit;
    ask.bound = resource.bound;
    ask.since = lock.since;
    ask.isEarlier = lock.isEarlier;
    ask.until = lock.until;
    ask.handle = lock.handle;
    ask.remark = lock.remark;
    ask.order = lock.order;
    return ask;
}

void Book::AddEnded(const Ask& ask, const std::string& how) {
    if (!mKept) return;
    const bool isOn = ask.by == Ask::By::kWrite  ? IsNode(*mKept, ask.path)
                      : ask.by == Ask::By::kLock ? mKept->opcodes.count(ask.opcode) > 0
                                                 : mKept->HasTag(ask.tag);
    if (!isOn) return;
    // The plug-in tries a node under the name of every CPU that shares it.
    const bool isSaid = ask.by == Ask::By::kWrite && !mEnded.empty() && mEnded.back().how == how &&
                        mEnded.back().at == mNow && mEnded.back().ask.request == ask.request;
    if (isSaid) return;
    mEnded.push_back({ask, mNow, how});
    if (mEnded.size() > kMostEnded) mEnded.pop_front();
}

std::vector<Ask> Book::AsksOn(const NodeTarget& target) const {
    std::vector<Ask> asks;
    for (const Ask& word : mWords) {
        const bool isLifted = word.value == 0 && IsSharedLimit(word.tag);
        if (target.HasTag(word.tag) && !isLifted) asks.push_back(word);
    }
    for (const auto& [handle, lock] : mLocks) {
        if (lock.tag >= 0) continue;
        for (size_t at = 0; at + 1 < lock.list.size(); at += 2) {
            if (!target.opcodes.count(lock.list[at])) continue;
            asks.push_back(PairAsk(lock, at));
            Ask& ask = asks.back();
            const bool isLimit = target.path.find("/scaling_m") != std::string::npos;
            if (isLimit && ask.remark.empty()) ask.remark = WhyNoBreakthrough(lock, ask.opcode);
        }
    }
    std::stable_sort(asks.begin(), asks.end(),
                     [](const Ask& a, const Ask& b) { return a.order < b.order; });
    return asks;
}

// Why the command's lock lifts none of the thermal limits on its node; empty when it does, or when
// there are none.
std::string Book::WhyNoBreakthrough(const BookedLock& lock, int opcode) const {
    const RequestFacts* facts = lock.takenBy->facts.get();
    const SceneCommand* command = facts && facts->cmdId ? mScenes.Find(*facts->cmdId) : nullptr;
    if (!command) return "";
    if (facts->isBoostUsedUp)
        return "lifts no thermal limit: its boosts of this period are used up";
    for (const SceneElement& element : command->elements) {
        for (const SceneKey& key : element.keys) {
            if (FindKeyOpcode(key.name) == opcode)
                return lock.conditions.WhyNoBreakthrough(element);
        }
    }
    return "";
}

// Writes without a lock.

bool Book::IsNode(const NodeTarget& target, const std::string& path) const {
    return path == target.path || mKernel.IsSameNode(path, target.path);
}

void Book::OnWrite(const NodeAccess& access) {
    if (access.kind == NodeAccess::Kind::kArrange) return Arrange(access);
    if (access.kind != NodeAccess::Kind::kWrite) return;
    if (access.error != 0 && (access.byHal || !mKept)) return;
    Ask ask = NewAsk(Ask::By::kWrite, "the plug-in's write");
    ask.order = ++mOrder;
    ask.path = access.path;
    ask.text = access.requested;
    ask.isAfterwards = !mIsInRequest;
    if (access.error != 0) {
        AddEnded(ask, std::string("refused by the kernel: ") + std::strerror(access.error));
        return;
    }
    Writes& writes = mWrites[access.path];
    writes.request = mRequest;
    writes.byHal = access.byHal;
    if (access.byHal) return;
    // Where locks reach the node too, a write goes along with them.
    if (writes.program && mKept && mKept->opcodes.empty()) {
        AddEnded(*writes.program,
                 fmt::format("overwritten by '{}'{}", ask.RequestText(), AtLine(mRequest->line)));
    }
    writes.program = std::move(ask);
}

// A node that the scenario itself sets or takes away: no one's leak.
void Book::Arrange(const NodeAccess& access) {
    Ask ask = NewAsk(Ask::By::kWrite, "the scenario's node step");
    ask.order = ++mOrder;
    ask.path = access.path;
    ask.text = access.after.empty() ? "taken away" : access.after;
    Writes& writes = mWrites[access.path];
    writes.request = mRequest;
    writes.program = std::move(ask);
    const auto changed = std::make_shared<AtBoot>(*mAtBoot);
    mAtBoot = changed;
    if (access.after.empty()) {
        changed->values.erase(access.path);
        return;
    }
    for (auto& [known, boot] : changed->values) {
        if (mKernel.IsSameNode(known, access.path)) boot = access.after;
    }
    if (!IsUnwatched(access.path)) changed->values[access.path] = access.after;
}

std::optional<Ask> Book::LastWrite(const NodeTarget& target) const {
    std::optional<Ask> last;
    for (const auto& [path, writes] : mWrites) {
        if (!writes.program || !IsNode(target, path)) continue;
        if (!last || writes.program->order > last->order) last = writes.program;
    }
    return last;
}

// Present frequencies follow everything and are nobody's; a policy's folder is another name of what
// its CPUs have.
bool Book::IsUnwatched(const std::string& path) {
    return path.find("cur_freq") != std::string::npos ||
           path.find("/cpufreq/policy") != std::string::npos;
}

}  // namespace lab

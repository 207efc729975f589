// The book's locks: what each carries, whose it is, and how it stands against the others.
#include <fmt/format.h>

#include <algorithm>

#include "base/ids.h"
#include "lab/book/book.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

bool IsStricter(Bound bound, int64_t value, int64_t than) {
    return bound == Bound::kFloor ? value > than : value < than;
}

}  // namespace

// A lock that carries one tag's arbitrated value, not one of a command or of a group.
bool Book::IsTagLock(const LockAcquire& acquire) const {
    if (acquire.list.size() != 2 || acquire.durationMs != 0) return false;
    const RequestFacts& facts = Facts();
    if (!facts.clientId) return !facts.claims.empty();
    return std::none_of(facts.groupTags.begin(), facts.groupTags.end(), [&](int tag) {
        return FindTagOpcode(tag, mLayout).value_or(0) == acquire.list[0];
    });
}

// The tag that a lock of the request under way belongs to. Some tags share an opcode: then it is
// the one with this value, at best one that has no lock yet.
int Book::TagOf(const std::vector<int>& list) const {
    std::optional<int> found;
    int best = -1;
    for (const TagValue& claim : Facts().claims) {
        if (FindTagOpcode(claim.tag, mLayout) != list[0]) continue;
        const int fit = (HalValue(claim.tag, claim.value) == list[1] ? 2 : 0) +
                        (mLockedTags.count(claim.tag) ? 0 : 1);
        if (fit <= best) continue;
        best = fit;
        found = claim.tag;
    }
    return found ? *found : FindOpcodeTag(list[0], mLayout).value_or(-1);
}

void Book::OnAcquire(const LockAcquire& acquire) {
    mTookLock = true;
    mTookUntimedLock = mTookUntimedLock || acquire.durationMs == 0;
    for (size_t at = 0; at + 1 < acquire.list.size(); at += 2) mTouched.insert(acquire.list[at]);
    const int tag = acquire.isEarlier    ? acquire.earlierTag
                    : IsTagLock(acquire) ? TagOf(acquire.list)
                                         : -1;
    if (!acquire.IsGranted()) return OnRefusal(acquire, tag);
    const auto [entry, isNew] = mLocks.try_emplace(acquire.returned);
    BookedLock& lock = entry->second;
    if (isNew) {
        lock.number = mLockCount++;
        lock.handle = acquire.returned;
        lock.since = mNow;
        lock.takenBy = mRequest;
    }
    CheckAsked(acquire, lock.number);
    if (!isNew && mKept && lock.tag < 0) {
        // What a renewal no longer names.
        for (size_t at = 0; at + 1 < lock.list.size(); at += 2) {
            bool isNamed = false;
            for (size_t i = 0; i + 1 < acquire.list.size(); i += 2) {
                isNamed = isNamed || (acquire.list[i] == lock.list[at] &&
                                      acquire.list[i + 1] == lock.list[at + 1]);
            }
            if (isNamed) continue;
            AddEnded(PairAsk(lock, at),
                     "its lock was renewed with another list" + AtLine(mRequest->line));
        }
    }
    lock.remark =
        isNew ? "" : fmt::format("renewed at {} s{}", SecondsText(mNow), AtLine(mRequest->line));
    lock.tag = tag;
    lock.isEarlier = acquire.isEarlier;
    lock.isDoubtful = acquire.isDoubtful;
    lock.isListAssumed = acquire.isListAssumed;
    lock.list = acquire.list;
    lock.renewed = mNow;
    lock.until.reset();
    if (acquire.durationMs > 0) lock.until = mNow + std::chrono::milliseconds(acquire.durationMs);
    ++lock.terms;
    lock.request = mRequest;
    lock.order = ++mOrder;
    lock.conditions = mConditions;
    lock.drives.clear();
    for (size_t at = 0; at + 1 < lock.list.size(); at += 2) {
        lock.drives.push_back(&DrivenBy(lock.list[at]));
    }
    if (tag >= 0) {
        mLockedTags.insert(tag);
        mTagHandles[tag] = lock.handle;
        if (!lock.list.empty()) mRefusedTags.erase(lock.list[0]);
    }
    SetOwner(lock);
}

void Book::OnRefusal(const LockAcquire& acquire, int tag) {
    if (mRefusalsLeft > 0) {
        --mRefusalsLeft;
    } else {
        AddFinding({fmt::format("{} s: the HAL refused a lock with {}, and no step arranged it, "
                                "during {}",
                                SecondsText(mNow), acquire.returned, Asker(mRequest)),
                    mNow, mRequest->number});
    }
    if (tag >= 0) {
        mRefusedTags.insert(acquire.list[0]);
        return;
    }
    if (!mKept) return;
    BookedLock refused;
    refused.list = acquire.list;
    refused.owner = LockHolder();
    refused.takenBy = mRequest;
    refused.since = mNow;
    for (size_t at = 0; at + 1 < refused.list.size(); at += 2) {
        AddEnded(PairAsk(refused, at),
                 fmt::format("the HAL refused the lock with {}", acquire.returned));
    }
}

void Book::CheckAsked(const LockAcquire& acquire, size_t number) {
    const RequestFacts& facts = Facts();
    if (acquire.isEarlier) return;
    if (!mIsInRequest || !facts.mayLock) {
        AddFinding(
            {fmt::format("{} s: lock {} was taken {} {}, which asks for none", SecondsText(mNow),
                         acquire.returned, mIsInRequest ? "during" : "after", Asker(mRequest)),
             mNow, mRequest->number, number});
        return;
    }
    for (size_t i = 0; i + 1 < acquire.list.size(); i += 2) {
        if (facts.opcodes.count(acquire.list[i])) continue;
        AddFinding({fmt::format("{} s: lock {} names {}, which {} does not ask for",
                                SecondsText(mNow), acquire.returned,
                                ResourceOf(acquire.list[i], mLayout).name, Asker(mRequest)),
                    mNow, mRequest->number, number});
    }
}

// A lock of a tag belongs to whoever asks for what it carries, any other to who took it.
void Book::SetOwner(BookedLock& lock) {
    if (lock.isEarlier || lock.tag < 0) {
        GiveTo(lock, lock.isEarlier && !Facts().isEarlier ? kUnnamed : LockHolder(),
               mIsInRequest ? mRequest : nullptr);
        return;
    }
    const Ask* word = StrictestWord(lock.tag);
    // In a capture the strictest may have spoken before it begins.
    const bool isUnheard =
        word && IsSharedLimit(lock.tag) && !lock.list.empty() &&
        IsStricter(word->bound, lock.list[1], HalValue(lock.tag, static_cast<int>(word->value)));
    if (isUnheard) word = RefusedWord(lock);
    GiveTo(lock,
           word        ? word->who
           : isUnheard ? kUnnamed
                       : "the plug-in",
           word ? word->request : nullptr);
}

// After a word that the tag's lock does not follow it is still its owner's, who may have said that
// word; but whoever asks for the same now comes first.
void Book::LeaveOwner(BookedLock& lock) {
    for (const Ask& word : mWords) {
        if (word.tag != lock.tag || lock.list.size() != 2) continue;
        if (HalValue(lock.tag, static_cast<int>(word.value)) != lock.list[1]) continue;
        return GiveTo(lock, word.who, word.request);
    }
}

void Book::GiveTo(BookedLock& lock, const std::string& owner, const RequestPtr& askedBy) {
    if (lock.owner == owner && lock.askedBy == askedBy) return;
    lock.owner = owner;
    lock.askedBy = askedBy;
    mChangedHands.push_back(lock.handle);
}

// The word of a refused request that the tag's lock carries; null when it carries none.
const Ask* Book::RefusedWord(const BookedLock& lock) const {
    const auto found = mRefusedWords.find(lock.tag);
    if (found == mRefusedWords.end() || lock.list.size() != 2) return nullptr;
    const int value = HalValue(lock.tag, static_cast<int>(found->second.value));
    return value == lock.list[1] ? &found->second : nullptr;
}

std::string Book::LockHolder() const {
    const RequestFacts& facts = Facts();
    if (!mIsInRequest || facts.who.empty()) return "the plug-in";
    return facts.clientId ? facts.who + "'s group" : facts.who;
}

void Book::EndLock(int handle, const std::string& how) {
    const auto found = mLocks.find(handle);
    if (found == mLocks.end()) return;
    mEndedLock = std::move(found->second);
    mLocks.erase(found);
    const BookedLock& lock = *mEndedLock;
    if (lock.tag >= 0) {
        if (!lock.list.empty()) mTagReleasers[lock.list[0]] = mRequest->Quoted();
        return;
    }
    if (!mKept) return;
    for (size_t at = lock.list.size() / 2 * 2; at >= 2; at -= 2) {
        AddEnded(PairAsk(lock, at - 2), how);
    }
}

// Why a lock of a command or of a group was released by the request under way.
std::string Book::WhyReleased() const {
    if (!mKept) return "";
    const RequestFacts& facts = Facts();
    const std::string line = AtLine(mRequest->line);
    if (facts.cmdId) {
        if (facts.event == RequestFacts::Event::kEnds ||
            facts.cmdId == tarquel::kCmdRegularEventEnd) {
            return "its event ended" + line;
        }
        return fmt::format("replaced by {}: untimed commands share one lock", mRequest->Quoted());
    }
    if (facts.isGroup) {
        return (facts.asked.front().value < 0 ? "its group was cancelled"
                                              : "replaced by the next group") +
               line;
    }
    return "released during " + mRequest->Quoted();
}

const BookedLock* Book::FindLock(int handle) const {
    const auto found = mLocks.find(handle);
    return found == mLocks.end() ? nullptr : &found->second;
}

const BookedLock* Book::FindTagLock(int opcode) const {
    const BookedLock* newest = nullptr;
    for (const auto& [handle, lock] : mLocks) {
        const bool isIts = lock.tag >= 0 && !lock.list.empty() && lock.list[0] == opcode;
        if (isIts && (!newest || lock.order > newest->order)) newest = &lock;
    }
    return newest;
}

std::string Book::WhoReleasedTag(int opcode) const {
    const auto found = mTagReleasers.find(opcode);
    return found == mTagReleasers.end() ? "" : found->second;
}

// Locks against each other.

const std::vector<BookedLock::Driven>& Book::DrivenBy(int opcode) const {
    const auto [driven, isNew] = mDrives->ofOpcode.try_emplace(opcode);
    if (isNew) {
        for (Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), mDevice)) {
            const auto node = mDrives->nodes.try_emplace(drive.path, mDrives->nodes.size()).first;
            driven->second.push_back({node->second, std::move(drive)});
        }
    }
    return driven->second;
}

std::vector<PerfHal::Claim> Book::ClaimsOn(const std::string& path) const {
    const auto node = mDrives->nodes.find(path);
    if (node != mDrives->nodes.end()) return ClaimsOn(node->second);
    for (const auto& [other, number] : mDrives->nodes) {
        if (mKernel.IsSameNode(other, path)) return ClaimsOn(number);
    }
    return {};
}

std::vector<PerfHal::Claim> Book::ClaimsOn(size_t node) const {
    std::vector<std::pair<uint64_t, PerfHal::Claim>> ordered;
    for (const auto& [handle, lock] : mLocks) {
        for (size_t i = 0; i < lock.drives.size(); ++i) {
            for (const BookedLock::Driven& driven : *lock.drives[i]) {
                if (driven.node != node || !mKernel.Has(driven.drive.path)) continue;
                ordered.emplace_back(lock.order,
                                     PerfHal::ClaimOf(driven.drive, handle, lock.list[2 * i],
                                                      lock.list[2 * i + 1], mDevice));
            }
        }
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<PerfHal::Claim> claims;
    for (auto& [order, claim] : ordered) claims.push_back(claim);
    PerfHal::Weigh(claims);
    return claims;
}

// What locks claim on the first node that `opcode` drives.
std::vector<PerfHal::Claim> Book::ClaimsOf(int opcode) const {
    const std::vector<BookedLock::Driven>& driven = DrivenBy(opcode);
    return driven.empty() ? std::vector<PerfHal::Claim>() : ClaimsOn(driven.front().node);
}

Book::Contest Book::ContestOf(int handle, int opcode, int value) const {
    const std::vector<PerfHal::Claim> claims = ClaimsOf(opcode);
    const PerfHal::Claim* own = nullptr;
    for (const PerfHal::Claim& claim : claims) {
        const bool isIts = claim.handle == handle && claim.opcode == opcode && claim.value == value;
        if (isIts) own = &claim;
    }
    if (!own) return {};
    if (IsOverwritten(*own)) return {};
    if (own->isInPlace && own->wins) {
        // It stands above the ceilings, of which the lowest is told.
        const PerfHal::Claim* ceiling = nullptr;
        for (const PerfHal::Claim& claim : claims) {
            const bool isLifted = claim.handle != handle && !claim.isInPlace;
            if (isLifted && (!ceiling || claim.nodeValue < ceiling->nodeValue)) ceiling = &claim;
        }
        if (!ceiling) return {};
        return {Contest::How::kLifts, ceiling->handle, ceiling->opcode, ceiling->value};
    }
    if (own->winner == Drive::Winner::kNewest) return {};
    for (const PerfHal::Claim& claim : claims) {
        // While it stands no ceiling counts, nor when a program's write has replaced it.
        if (!claim.isInPlace || !claim.wins || claim.handle == handle) continue;
        if (IsOverwritten(claim)) return {};
        const Contest::How how = claim.nodeValue > own->nodeValue   ? Contest::How::kIsLifted
                                 : claim.nodeValue < own->nodeValue ? Contest::How::kLoses
                                                                    : Contest::How::kSame;
        return {how, claim.handle, claim.opcode, claim.value};
    }
    const PerfHal::Claim* rival = nullptr;
    for (const PerfHal::Claim& claim : claims) {
        const bool isRival = claim.handle != handle && claim.entry == own->entry &&
                             claim.isInPlace == own->isInPlace;
        if (isRival && (!rival || PerfHal::Beats(claim, *rival))) rival = &claim;
    }
    if (!rival) return {};
    const Contest::How how = rival->nodeValue == own->nodeValue ? Contest::How::kSame
                             : PerfHal::Beats(*own, *rival)     ? Contest::How::kWins
                                                                : Contest::How::kLoses;
    return {how, rival->handle, rival->opcode, rival->value};
}

// True for a claim in place of what programs write when one has written since: the last one counts.
// A second lock on the same value does not make the HAL write it again.
bool Book::IsOverwritten(const PerfHal::Claim& claim) const {
    if (!claim.isInPlace) return false;
    NodeTarget node;
    node.path = DrivenBy(claim.opcode).front().drive.path;
    const std::optional<Ask> write = LastWrite(node);
    uint64_t placed = mLocks.at(claim.handle).order;
    for (const PerfHal::Claim& other : ClaimsOf(claim.opcode)) {
        const bool isSame = other.isInPlace && other.nodeValue == claim.nodeValue;
        if (isSame) placed = std::min(placed, mLocks.at(other.handle).order);
    }
    return write && write->order > placed;
}

std::optional<PerfHal::Claim> Book::HeirOf(int opcode, int value) const {
    const std::vector<BookedLock::Driven>& driven = DrivenBy(opcode);
    if (driven.empty()) return std::nullopt;
    const PerfHal::Claim ended = PerfHal::ClaimOf(driven.front().drive, 0, opcode, value, mDevice);
    if (ended.winner == Drive::Winner::kNewest) return std::nullopt;
    for (const PerfHal::Claim& claim : ClaimsOn(driven.front().node)) {
        const bool isHeir = claim.wins && claim.entry == ended.entry && !IsOverwritten(claim);
        if (isHeir && PerfHal::Beats(ended, claim)) return claim;
    }
    return std::nullopt;
}

}  // namespace lab

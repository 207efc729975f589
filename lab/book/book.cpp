#include "lab/book/book.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/ids.h"
#include "lab/book/limit_words.h"
#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"
#include "lab/names/usual_lines.h"
#include "lab/scenes/scene_values.h"

namespace lab {
namespace {

// What a report can use of a day's replay.
constexpr size_t kMostEnded = 200;

// Shifts of the load: a 0 is no value of theirs and leaves the last one in force.
bool IgnoresZero(int tag) {
    return tag >= 105 && tag <= 107;
}

// Present frequencies follow everything and are nobody's; a policy's folder is another name of what
// its CPUs have.
bool IsUnwatched(const std::string& path) {
    return path.find("cur_freq") != std::string::npos ||
           path.find("/cpufreq/policy") != std::string::npos;
}

bool IsStricter(Bound bound, int64_t value, int64_t than) {
    return bound == Bound::kFloor ? value > than : value < than;
}

}  // namespace

std::string AtLine(int line) {
    return line ? fmt::format(" (line {})", line) : "";
}

std::string BookedRequest::Quoted() const {
    return fmt::format("'{}'{}", text, AtLine(line));
}

std::string Ask::RequestText() const {
    return (isAfterwards ? "the end of the breakthrough after " : "") + request->text;
}

std::string Ask::ValueText() const {
    if (by != By::kWrite) return BoundText(bound, value, unit);
    return text.empty() ? "" : "= " + text;
}

bool IsSharedLimit(int tag) {
    return IsFloorLimit(tag) || IsCeilingLimit(tag);
}

Book::Book(const DeviceProfile& device, const SceneFile& scenes, const Kernel& kernel)
    : mDevice(device),
      mScenes(scenes),
      mKernel(kernel),
      mLayout(scenes.ClusterLayout()),
      mDrives(std::make_shared<DriveTable>()),
      mRequest(std::make_shared<BookedRequest>()) {
    AtBoot atBoot;
    for (const std::string& path : kernel.Paths()) {
        if (!IsUnwatched(path)) atBoot.values[path] = kernel.Value(path);
    }
    for (int tag = 0; tag <= kHighestTag; ++tag) {
        for (const std::string& path : TagNodes(tag, device)) {
            atBoot.tagsOfNode[path].push_back(tag);
        }
    }
    mAtBoot = std::make_shared<const AtBoot>(std::move(atBoot));
}

void Book::Observe(const Event& event) {
    mNow = event.at;
    mEndedLock.reset();
    mChangedHands.clear();
    if (const auto* begin = std::get_if<RequestBegin>(&event.what)) {
        BeginRequest(*begin);
    } else if (const auto* end = std::get_if<RequestEnd>(&event.what)) {
        EndRequest(*end);
    } else if (const auto* line = std::get_if<LogLine>(&event.what)) {
        if (mKept && line->priority >= kAndroidError) {
            mErrors.push_back(WithoutNewline(line->text));
        }
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

// Requests.

const RequestFacts& Book::Facts() const {
    static const RequestFacts none;
    return mRequest->facts ? *mRequest->facts : none;
}

void Book::BeginRequest(const RequestBegin& begin) {
    auto request = std::make_shared<BookedRequest>();
    request->number = mRequest->number + 1;
    request->begin = mNow;
    request->text = begin.facts && !begin.facts->text.empty() ? begin.facts->text : begin.text;
    request->line = begin.line;
    request->facts = begin.facts;
    mRequest = std::move(request);
    mIsInRequest = true;
    mTookLock = false;
    mTookUntimedLock = false;
    mLockedTags.clear();
    mTouched.clear();
    mErrors.clear();
    const RequestFacts& facts = Facts();
    if (facts.isRestart) {
        mWords.clear();
        mConditions = RunConditions();
    }
    mRefusalsLeft = facts.arrangedRefusals.value_or(mRefusalsLeft);
    TakeWords(facts);
}

void Book::EndRequest(const RequestEnd& end) {
    mIsInRequest = false;
    const RequestFacts& facts = Facts();
    for (const std::string& name : facts.ended) mStanding.erase(name);
    if (!facts.standing.empty() && mTookLock) {
        // What has a time limit replaces nothing.
        if (facts.replaces && mTookUntimedLock) mStanding[facts.standing].clear();
        mStanding[facts.standing].insert(mRequest->number);
    }
    for (const TagValue& claim : facts.claims) {
        const auto lock = mTagHandles.find(claim.tag);
        if (lock == mTagHandles.end()) continue;
        const auto held = mLocks.find(lock->second);
        if (held != mLocks.end()) SetOwner(held->second);
    }
    if (mKept) NoteUnheard(facts, end.result);
    if (facts.state) mConditions.SetState(*facts.state);
    for (const int type : facts.controlTypes) mConditions.SetControlType(type, mRequest->line);
    if (mRequest->number % 1024 == 0) PruneStanding();
}

// A long run would keep the number of every request that ever took a lock.
void Book::PruneStanding() {
    std::set<size_t> needed;
    for (const auto& [handle, lock] : mLocks) needed.insert(lock.request->number);
    for (auto& [name, requests] : mStanding) {
        std::erase_if(requests, [&](size_t request) { return !needed.count(request); });
    }
}

// Words on tags.

void Book::TakeWords(const RequestFacts& facts) {
    const bool isScene = !facts.clientId.has_value();
    const SceneCommand* command = isScene && facts.cmdId ? mScenes.Find(*facts.cmdId) : nullptr;
    if (command && facts.event == RequestFacts::Event::kEnds) {
        for (const SceneElement& element : command->elements) NotePassedEnd(element, facts.who);
    }
    const bool isPassedOver =
        command && !mConditions.WhyPassedOver(command->elements.front()).empty();
    if (isPassedOver) return;
    const bool isEnd = isScene && facts.event == RequestFacts::Event::kEnds;
    const bool isUntimedGroup = facts.isGroup && facts.asked.front().value == 0;
    for (const TagValue& claim : facts.claims) {
        if (claim.value == 0 && IgnoresZero(claim.tag)) continue;
        mLastWord[claim.tag] = claim.value;
        Ask ask = TagAsk(isScene ? Ask::By::kScene : Ask::By::kClient, claim.tag, claim.value);
        ask.order = ++mOrder;
        ask.isRemembered =
            isEnd || (!facts.isOutcome &&
                      IsRememberedWord(claim.tag, isScene ? *facts.cmdId : *facts.clientId,
                                       claim.value, isUntimedGroup));
        const bool isLifted = claim.value == 0 && IsSharedLimit(claim.tag);
        const char* how = isEnd      ? "its event ended"
                          : isScene  ? "asked again"
                          : isLifted ? "lifted by the same client"
                                     : "replaced by the same client";
        // A group's other tags are its lock's: the tag's own lock stays as it is.
        const bool isHeard = !facts.isGroup || (isUntimedGroup && IsCpuCeilingLimit(claim.tag)) ||
                             !IsSharedLimit(claim.tag);
        if (isHeard || ask.isRemembered) {
            SetWord(std::move(ask), how + AtLine(mRequest->line), isHeard);
        }
    }
}

// The requester's word on a tag from now on. It ends every word that is not remembered, and the
// same requester's if it is remembered itself: the camera's group stands while its other words come
// and go. One that is not heard by the tag's lock is only weighed against later ones: what counts
// alone goes on to do so.
void Book::SetWord(Ask ask, const std::string& how, bool isHeard) {
    if (!isHeard) {
        for (Ask& other : mWords) {
            if (other.tag == ask.tag && !other.isRemembered) std::swap(other.order, ask.order);
        }
    }
    for (size_t i = mWords.size(); i-- > 0;) {
        const Ask& other = mWords[i];
        if (other.tag != ask.tag) continue;
        const bool isOwn = other.by == ask.by && other.who == ask.who;
        const bool isReplaced = other.isRemembered ? isOwn && ask.isRemembered : isHeard;
        if (!isReplaced) continue;
        AddEnded(other, isOwn ? how
                              : fmt::format("replaced by {}'s request{}: such requests for one tag "
                                            "are not weighed, the last one counts",
                                            ask.who, AtLine(mRequest->line)));
        mWords.erase(mWords.begin() + static_cast<std::ptrdiff_t>(i));
    }
    // One of 0 that is not remembered lifts the limit until the next word on it.
    const bool isLifted = ask.value == 0 && IsSharedLimit(ask.tag);
    if (!isLifted || !ask.isRemembered) mWords.push_back(std::move(ask));
}

const Ask* Book::StrictestWord(int tag) const {
    std::vector<const Ask*> asks;
    std::vector<LimitWord> words;
    for (const Ask& word : mWords) {
        if (word.tag != tag) continue;
        asks.push_back(&word);
        words.push_back({0, static_cast<int>(word.value), word.order, word.isRemembered});
    }
    if (!IsSharedLimit(tag)) return asks.empty() ? nullptr : asks.back();
    const std::optional<size_t> winner = WinningWord(tag, words);
    return winner ? asks[*winner] : nullptr;
}

// What ends without having been in force, for those who ask what was before.

void Book::NoteUnheard(const RequestFacts& facts, const std::string& result) {
    if (facts.clientId) {
        NoteLimits(facts);
    } else if (facts.cmdId) {
        NoteCommand(facts, result);
    }
}

void Book::NoteLimits(const RequestFacts& facts) {
    for (const TagValue& pair : facts.asked) {
        const bool isClaim =
            std::any_of(facts.claims.begin(), facts.claims.end(),
                        [&](const TagValue& claim) { return claim.tag == pair.tag; });
        if (isClaim && facts.result == 0) continue;
        const Ask ask = TagAsk(Ask::By::kClient, pair.tag, pair.value);
        if (facts.result != 0) {
            AddEnded(ask, "refused: " + Errors());
        } else if (!mTouched.count(ask.opcode)) {
            AddEnded(ask, "took no lock: " + Errors());
        }
    }
}

void Book::NoteCommand(const RequestFacts& facts, const std::string& result) {
    const SceneCommand* command = mScenes.Find(*facts.cmdId);
    const bool isOff = facts.event == RequestFacts::Event::kEnds;
    if (!command || isOff) return;
    const bool isScene = IsLongScene(*command);
    if (isScene && facts.event != RequestFacts::Event::kBegins) return;
    for (const SceneElement& element : command->elements) {
        const std::string skipped = mConditions.WhyPassedOver(element);
        for (const SceneKey& key : element.keys) {
            if (isScene) {
                const std::optional<int> tag = FindTag(key.name, mLayout);
                if (!tag || (facts.result == 0 && skipped.empty())) continue;
                AddEnded(TagAsk(Ask::By::kScene, *tag, std::atoi(key.value.c_str())),
                         facts.result != 0 ? "refused: " + Errors() : "passed over: " + skipped);
                continue;
            }
            const std::optional<int> opcode = FindKeyOpcode(key.name);
            if (!opcode || mTouched.count(*opcode)) continue;
            Ask ask = NewAsk(Ask::By::kLock, command->Label());
            const Resource resource = ResourceOf(*opcode, mLayout);
            ask.opcode = *opcode;
            ask.unit = resource.unit;
            ask.bound = resource.bound;
            ask.value = HalValueOfKey(*opcode, key.value);
            AddEnded(ask, "took no lock: " + WhyNoLock(element, result));
        }
        if (isScene) return;
    }
}

// An end that the plug-in passes over leaves standing what it should end.
void Book::NotePassedEnd(const SceneElement& element, const std::string& who) {
    const std::string skipped = mConditions.WhyPassedOver(element);
    if (skipped.empty()) return;
    const std::string remark =
        fmt::format("its end{} was passed over: {}", AtLine(mRequest->line), skipped);
    for (Ask& word : mWords) {
        if (word.who != who) continue;
        word.remark = remark;
        word.isOver = true;
    }
    for (auto& [handle, lock] : mLocks) {
        if (lock.tag < 0 && lock.owner == who) lock.remark = remark;
    }
}

std::string Book::WhyNoLock(const SceneElement& element, const std::string& result) const {
    if (result.starts_with("failed: ")) return result.substr(std::strlen("failed: "));
    const std::string skipped = mConditions.WhyPassedOver(element);
    if (!skipped.empty()) return skipped;
    if (!mErrors.empty()) return Errors();
    return mTookLock ? "its lock takes 32 pairs, and this one stands behind them"
                     : "nothing tells of a lock for it";
}

std::string Book::Errors() const {
    std::vector<std::string> distinct;
    for (const std::string& error : mErrors) {
        if (IsUsualLine(error)) continue;
        const std::string quoted = "'" + error + "'";
        if (std::find(distinct.begin(), distinct.end(), quoted) == distinct.end()) {
            distinct.push_back(quoted);
        }
    }
    if (distinct.empty()) return "the plug-in gives no reason in its log";
    return "the plug-in says " + Join(distinct);
}

// Locks.

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
    const std::string owner = lock.owner;
    const RequestPtr askedBy = lock.askedBy;
    if (lock.isEarlier || lock.tag < 0) {
        lock.owner = lock.isEarlier && !Facts().isEarlier ? kUnnamed : LockHolder();
        lock.askedBy = mIsInRequest ? mRequest : nullptr;
    } else {
        const Ask* word = StrictestWord(lock.tag);
        // In a capture the strictest may have spoken before it begins.
        const bool isUnheard = word && IsSharedLimit(lock.tag) && !lock.list.empty() &&
                               IsStricter(word->bound, lock.list[1],
                                          HalValue(lock.tag, static_cast<int>(word->value)));
        lock.owner = isUnheard ? kUnnamed : word ? word->who : "the plug-in";
        lock.askedBy = word && !isUnheard ? word->request : nullptr;
    }
    if (lock.owner != owner || lock.askedBy != askedBy) mChangedHands.push_back(lock.handle);
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
    if (own->isInPlace) {
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
bool Book::IsOverwritten(const PerfHal::Claim& claim) const {
    if (!claim.isInPlace) return false;
    NodeTarget node;
    node.path = DrivenBy(claim.opcode).front().drive.path;
    const std::optional<Ask> write = LastWrite(node);
    return write && write->order > mLocks.at(claim.handle).order;
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

// Asks on a node.

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

}  // namespace lab

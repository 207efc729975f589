#include "lab/book/book.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lab/book/limit_words.h"
#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {
namespace {

// Shifts of the load: a 0 is no value of theirs and leaves the last one in force.
bool IgnoresZero(int tag) {
    return tag >= 105 && tag <= 107;
}

bool IsUntimedGroup(const RequestFacts& facts) {
    return facts.isGroup && facts.asked.front().value == 0;
}

// True for a word that the tag's own lock follows: a group's other tags are its lock's, and the
// tag's own stays as it is.
bool IsHeard(int tag, const RequestFacts& facts) {
    return !facts.isGroup || (IsUntimedGroup(facts) && IsCpuCeilingLimit(tag)) ||
           !IsSharedLimit(tag);
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
    mHeardTags.clear();
    mTouched.clear();
    mErrors.clear();
    const RequestFacts& facts = Facts();
    if (facts.isRestart) {
        mWords.clear();
        mRefusedWords.clear();
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
        if (held == mLocks.end()) continue;
        if (mHeardTags.count(claim.tag)) {
            SetOwner(held->second);
        } else {
            LeaveOwner(held->second);
        }
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
    if (!isScene) NoteRefusedWords(facts);
    const bool isEnd = isScene && facts.event == RequestFacts::Event::kEnds;
    for (const TagValue& claim : facts.claims) {
        if (claim.value == 0 && IgnoresZero(claim.tag)) continue;
        mLastWord[claim.tag] = claim.value;
        Ask ask = TagAsk(isScene ? Ask::By::kScene : Ask::By::kClient, claim.tag, claim.value);
        ask.order = ++mOrder;
        ask.isRemembered =
            isEnd || (!facts.isOutcome &&
                      IsRememberedWord(claim.tag, isScene ? *facts.cmdId : *facts.clientId,
                                       claim.value, IsUntimedGroup(facts)));
        const bool isLifted = claim.value == 0 && IsSharedLimit(claim.tag);
        const char* how = isEnd      ? "its event ended"
                          : isScene  ? "asked again"
                          : isLifted ? "lifted by the same client"
                                     : "replaced by the same client";
        const bool isHeard = IsHeard(claim.tag, facts);
        if (isHeard) mHeardTags.insert(claim.tag);
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

// A refused request's words, up to the one that is refused, bind nobody; but long scenes are
// weighed against them until a client speaks again.
void Book::NoteRefusedWords(const RequestFacts& facts) {
    for (const TagValue& pair : facts.asked) {
        if (pair.value < 0 && pair.tag != kGroupTag) return;
        const bool isRemembered =
            IsRememberedWord(pair.tag, *facts.clientId, pair.value, IsUntimedGroup(facts));
        if (!isRemembered) continue;
        mRefusedWords.erase(pair.tag);
        if (facts.result != 0 && pair.value > 0) {
            mRefusedWords[pair.tag] = TagAsk(Ask::By::kClient, pair.tag, pair.value);
        }
    }
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

}  // namespace lab

// Lines that tell what commands did.
#include <fmt/format.h>

#include <algorithm>

#include "base/ids.h"
#include "lab/logcat/story_teller.h"

namespace lab {
namespace {

constexpr int kLongestBreakthroughMs = 3000;

std::string DurationText(int ms) {
    return ms > 0 ? fmt::format("{} ms", ms) : "until released";
}

}  // namespace

void StoryTeller::SceneZero(LogDraft& draft) {
    if (draft.kind != Kind::kScene || draft.hasEffects) Begin(Kind::kScene);
    draft.cmdId = Number(1);
}

// Comes before the request that it is for.
void StoryTeller::TaskId(LogDraft& draft) {
    const bool isNext =
        draft.kind == Kind::kCommand && draft.hasMessage && !draft.hasLock && !draft.isDone;
    if (!isNext) Begin(Kind::kCommand);
    draft.hasMessage = true;
    if (mLine->match.message == Message::kNoTaskId) return;
    draft.cmdId = Number(0);
    draft.taskId = Number(1);
}

// The chain under way when the line may belong to it, else a new one.
LogDraft& StoryTeller::Command(int cmdId, int index) {
    LogDraft& draft = *mDraft;
    if (draft.kind != Kind::kCommand) return Begin(Kind::kCommand);
    const bool endsRegular = draft.isReleased && draft.cmdId == tarquel::kCmdRegularEvent &&
                             cmdId == tarquel::kCmdRegularEventEnd && draft.acquires == 0;
    const bool isSame = draft.cmdId == -1 || draft.cmdId == cmdId || endsRegular;
    const bool isFree = endsRegular || !draft.isReleased;
    if (!isSame || !isFree || (draft.isDone && !HasMoreElements(draft, index))) {
        return Begin(Kind::kCommand);
    }
    draft.isDone = false;
    draft.cmdId = cmdId;
    if (endsRegular) {
        draft.isReleased = false;
        draft.index = -1;
        draft.indices.clear();
    }
    return draft;
}

bool StoryTeller::HasMoreElements(const LogDraft& draft, int index) const {
    if (index >= 0) return index > draft.index;
    const auto& elements = mLists.Elements(draft.cmdId, 0, std::nullopt);
    return !elements.empty() && elements.back().index > draft.index;
}

void StoryTeller::Boostless(LogDraft& draft) {
    const bool isNext = draft.kind == Kind::kCommand && !draft.isReleased &&
                        (!draft.isDone || (draft.isBoostless && HasMoreElements(draft, -1)));
    if (!isNext) Begin(Kind::kCommand);
    ++draft.index;
    draft.isDone = false;
    draft.isBoostless = true;
}

void StoryTeller::EventKey(LogDraft& draft) {
    const bool isCached = mLine->match.message == Message::kEventCached;
    const int cmdId = Number(0);
    const int index = Number(1);
    Command(cmdId, index);
    draft.cmdId = cmdId;
    draft.pendingIndex = index;
    draft.isEvent = true;
    const std::pair<int, int> key(cmdId, index);
    if (isCached && cmdId == tarquel::kCmdQuietOnSuccess && Number(2) >= 1) {
        // Its success has no line of its own.
        LockAcquire acquire{mEventHandles[key], 0, {}, Number(2)};
        if (const CommandLists::Element* element = FindElement(draft, -1, 0, 0)) {
            acquire.durationMs = draft.onDemandMs > 0 ? draft.onDemandMs : element->durationMs;
            Assume(acquire, *element);
        }
        draft.indices.insert(index);
        Count(draft, acquire.returned);
        Effect(draft, std::move(acquire));
    }
    if (isCached) {
        mEventHandles[key] = Number(2);
    } else if (mLine->match.message == Message::kEventHeld) {
        mEventHandles.try_emplace(key, Number(2));
    }
}

void StoryTeller::CommonLock(LogDraft& draft) {
    draft.cmdId = Number(0);
    // The one before it is let go without a line.
    LetGo(draft, mCommonHandle);
    mCommonHandle = Number(1);
}

// The element of the chain whose lock the line at hand tells, or null.
//   pairs       as logged; -1: not told
//   durationMs  at best; -1: any
//   thermal     the level that completes it; 0: none
const CommandLists::Element* StoryTeller::FindElement(const LogDraft& draft, int pairs,
                                                      int durationMs, int thermal) {
    const CommandLists::Element* second = nullptr;
    for (const auto& element : mLists.Elements(draft.cmdId, thermal, draft.taskId)) {
        if (!draft.MayHave(element.index) || (pairs >= 0 && element.pairs != pairs)) continue;
        if (draft.onDemandMs > 0 || element.durationMs == durationMs) return &element;
        if (!second) second = &element;
    }
    return second;
}

// The element under way as each thermal level completes it that may have been in force before the
// capture begins; null unless all that fit hold the same.
//   isOfSome  becomes true when there are any
const CommandLists::Element* StoryTeller::FindCompleted(const LogDraft& draft, int pairs,
                                                        bool& isOfSome) {
    const CommandLists::Element* found = nullptr;
    for (int level = 1; level <= kThermalLevels; ++level) {
        const CommandLists::Element* element = FindElement(draft, pairs, -1, level);
        if (!element) continue;
        isOfSome = true;
        if (found && found->list != element->list) return nullptr;
        found = element;
    }
    return found;
}

// An action that breaks through a thermal limit arms the timer before it takes its lock.
void StoryTeller::StartBreakthrough(LogDraft& draft, const CommandLists::Element& element,
                                    int durationMs) {
    const int wanted = draft.isEvent ? durationMs : element.durationMs;
    const int ms = wanted == 0 ? kLongestBreakthroughMs : std::min(wanted, kLongestBreakthroughMs);
    const Time end = mLine->at + std::chrono::milliseconds(ms);
    if (end <= mBreakthroughEnd) return;
    mBreakthroughEnd = end;
    Effect(draft, TimerEvent{TimerEvent::Kind::kArm, ms});
}

void StoryTeller::Acquired(LogDraft& draft) {
    const bool isRefused = mLine->match.message == Message::kLockRefused;
    const int cmdId = Number(0);
    Command(cmdId, draft.pendingIndex > draft.index ? draft.pendingIndex : -1);
    draft.cmdId = cmdId;
    ShowEarlier(draft);
    const int oldHandle = Number(1);
    const int handle = Number(2);
    const int pairs = isRefused ? -1 : Number(3);
    const int durationMs = Number(isRefused ? 3 : 4);
    const CommandLists::Element* element =
        mThermal > 0 ? FindElement(draft, pairs, durationMs, mThermal) : nullptr;
    const bool mayBreakThrough = element && element->mayBreakThrough;
    if (!element) element = FindElement(draft, pairs, durationMs, 0);
    bool isOfSome = false;
    if (!element && !mIsThermalKnown && !isRefused) element = FindCompleted(draft, pairs, isOfSome);
    LockAcquire acquire{oldHandle, durationMs, {}, handle};
    if (element) {
        if (mayBreakThrough) StartBreakthrough(draft, *element, durationMs);
        Assume(acquire, *element);
        CheckDuration(draft, *element, acquire);
        draft.index = element->index;
    } else {
        draft.index = draft.pendingIndex >= 0 ? draft.pendingIndex : draft.index + 1;
        const bool isKnown = !mLists.Elements(cmdId, 0, std::nullopt).empty();
        if (isKnown && !isOfSome && mTold.insert(cmdId).second) {
            Tell(fmt::format(
                "command {} holds {} pairs here, which no element of it has in {}; give "
                "the phone's own with --scenes",
                cmdId, pairs, mWriter.SceneFileName()));
        }
    }
    draft.indices.insert(draft.index);
    draft.pendingIndex = -1;
    draft.hasLock = true;
    Count(draft, handle);
    Effect(draft, std::move(acquire));
}

// An on-demand duration may differ from the scene file's, and so does any in a scene file of
// another phone.
void StoryTeller::CheckDuration(const LogDraft& draft, const CommandLists::Element& element,
                                LockAcquire& acquire) {
    if (acquire.durationMs == element.durationMs) return;
    acquire.sceneMs = element.durationMs;
    acquire.isOnDemand = draft.onDemandMs > 0 && draft.onDemandMs == acquire.durationMs;
    if (acquire.isOnDemand) return;
    acquire.isDoubtful = true;
    if (!mToldDurations.insert({draft.cmdId, element.index, acquire.durationMs}).second) return;
    Tell(fmt::format("locks {} for {}, {} says {}; give the phone's own with --scenes",
                     mWriter.NamesOf(draft.cmdId).second, DurationText(acquire.durationMs),
                     mWriter.SceneFileName(), DurationText(element.durationMs)));
}

void StoryTeller::EventReleased(LogDraft& draft) {
    const int cmdId = Number(0);
    const int index = Number(1);
    const bool isNext = draft.kind == Kind::kCommand && draft.isReleased && draft.cmdId == cmdId &&
                        draft.acquires == 0 && index > draft.index;
    if (!isNext) Begin(Kind::kCommand);
    draft.cmdId = cmdId;
    draft.isReleased = true;
    draft.index = index;
    draft.indices.insert(index);
    ShowEarlier(draft);
    const auto held = mEventHandles.find({cmdId, index});
    if (held == mEventHandles.end()) {
        draft.remark = "the lines that take its lock are missing";
        mStory.lastLoss = {mLine->line, mLine->at};
    } else {
        LetGo(draft, held->second);
    }
}

void StoryTeller::ActionDone(LogDraft& draft) {
    const int cmdId = Number(1);
    const bool isIts = draft.cmdId == -1 || draft.cmdId == cmdId;
    const bool isScene = isIts && draft.kind == Kind::kScene;
    const bool isChain =
        isIts && draft.kind == Kind::kCommand && !draft.isReleased && !draft.isDone;
    // What the capture's first line belongs to may have begun before it.
    const bool isBegun = !mStory.isWhole && mEnds == 0 && draft.kind != Kind::kCommand;
    if (!isScene && !isChain) Begin(Kind::kCommand);
    if (!isBegun && !isScene && !draft.hasLock && !draft.isBoostless &&
        cmdId != tarquel::kCmdQuietOnSuccess) {
        TellLoss(
            fmt::format("command {} is done here, but the lines that tell what it did are missing "
                        "or out of order",
                        cmdId));
    }
    draft.cmdId = cmdId;
    draft.payloadCount = Number(2);
    if (mLine->match.message == Message::kActionDone) draft.payload = Number(3);
    draft.isDone = true;
}

void StoryTeller::ScenePair(LogDraft& draft) {
    const bool isNext =
        draft.kind == Kind::kScene && !draft.hasEffects && (Number(1) > 1 || draft.asked.empty());
    if (!isNext) Begin(Kind::kScene);
    const int missing = Number(1) - draft.pairs - 1;
    draft.hasGap = draft.hasGap || missing > 0;
    if (missing > 0) TellGap(fmt::format("value {} of a scene", Number(1)), missing);
    draft.pairs = Number(1);
    draft.asked.push_back({Number(2), Number(3)});
}

}  // namespace lab

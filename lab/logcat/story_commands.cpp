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

void StoryTeller::AddCommand() {
    switch (mLine->match.message) {
        case Message::kActionDone:
            return ActionDone(true);
        case Message::kActionDoneBare:
            return ActionDone(false);
        case Message::kBoostsDisabled:
            return Boostless();
        case Message::kCommonLock:
            return CommonLock();
        case Message::kLockRefused:
            return Acquired(true);
        case Message::kLockTaken:
            return Acquired(false);
        case Message::kOnDemand: {
            LogDraft& draft = Command(Number(0));
            draft.onDemandMs = Number(1);
            return AddLine(draft);
        }
        case Message::kSceneZero: {
            LogDraft& draft =
                mDraft->kind == Kind::kScene && !mDraft->hasEffects ? *mDraft : Begin(Kind::kScene);
            draft.cmdId = Number(1);
            return AddLine(draft);
        }
        case Message::kScenePair:
            return ScenePair();
        case Message::kTaskId:
        case Message::kNoTaskId: {
            // Comes before the request that it is for.
            const bool isNext = mDraft->kind == Kind::kCommand && mDraft->hasMessage &&
                                !mDraft->hasLock && !mDraft->isDone;
            LogDraft& draft = isNext ? *mDraft : Begin(Kind::kCommand);
            draft.hasMessage = true;
            if (mLine->match.message == Message::kTaskId) {
                draft.cmdId = Number(0);
                draft.taskId = Number(1);
            }
            return AddLine(draft);
        }
        case Message::kEventReleased:
            return EventReleased();
        case Message::kEventFresh:
        case Message::kEventHeld:
            return EventKey(false);
        case Message::kEventCached:
            return EventKey(true);
        default:
            return Remark();
    }
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

void StoryTeller::Boostless() {
    const bool isNext = mDraft->kind == Kind::kCommand && !mDraft->isReleased &&
                        (!mDraft->isDone || (mDraft->isBoostless && HasMoreElements(*mDraft, -1)));
    LogDraft& draft = isNext ? *mDraft : Begin(Kind::kCommand);
    ++draft.index;
    draft.isDone = false;
    draft.isBoostless = true;
    AddLine(draft);
}

void StoryTeller::EventKey(bool isCached) {
    const int cmdId = Number(0);
    const int index = Number(1);
    LogDraft& draft = Command(cmdId, index);
    draft.cmdId = cmdId;
    draft.pendingIndex = index;
    draft.isEvent = true;
    const std::pair<int, int> key(cmdId, index);
    if (isCached && cmdId == tarquel::kCmdQuietOnSuccess && Number(2) >= 1) {
        // Its success has no line of its own.
        LockAcquire acquire{mEventHandles[key], 0, {}, Number(2)};
        if (const CommandLists::Element* element = FindElement(draft, -1, 0, false)) {
            acquire.durationMs = draft.onDemandMs > 0 ? draft.onDemandMs : element->durationMs;
            acquire.list = element->list;
            acquire.isListAssumed = true;
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
    AddLine(draft);
}

void StoryTeller::CommonLock() {
    LogDraft& draft = Command(Number(0));
    draft.cmdId = Number(0);
    // The one before it is let go without a line.
    LetGo(draft, mCommonHandle);
    mCommonHandle = Number(1);
    AddLine(draft);
}

// The element of the chain whose lock the line at hand tells, or null.
//   pairs  as logged; -1: not told
const CommandLists::Element* StoryTeller::FindElement(const LogDraft& draft, int pairs,
                                                      int durationMs, bool isCompleted) {
    const int thermal = isCompleted ? mThermal : 0;
    const CommandLists::Element* second = nullptr;
    for (const auto& element : mLists.Elements(draft.cmdId, thermal, draft.taskId)) {
        const bool isNext = draft.pendingIndex >= 0 ? element.index == draft.pendingIndex
                                                    : element.index > draft.index;
        if (!isNext || (pairs >= 0 && element.pairs != pairs)) continue;
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
        for (const auto& element : mLists.Elements(draft.cmdId, level, draft.taskId)) {
            const bool isNext = draft.pendingIndex >= 0 ? element.index == draft.pendingIndex
                                                        : element.index > draft.index;
            if (!isNext || element.pairs != pairs) continue;
            isOfSome = true;
            if (found && found->list != element.list) return nullptr;
            found = &element;
            break;
        }
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

void StoryTeller::Acquired(bool isRefused) {
    const int cmdId = Number(0);
    LogDraft& draft =
        Command(cmdId, mDraft->pendingIndex > mDraft->index ? mDraft->pendingIndex : -1);
    draft.cmdId = cmdId;
    ShowEarlier(draft);
    const int oldHandle = Number(1);
    const int handle = Number(2);
    const int pairs = isRefused ? -1 : Number(3);
    const int durationMs = Number(isRefused ? 3 : 4);
    const CommandLists::Element* element =
        mThermal > 0 ? FindElement(draft, pairs, durationMs, true) : nullptr;
    const bool mayBreakThrough = element && element->mayBreakThrough;
    if (!element) element = FindElement(draft, pairs, durationMs, false);
    const bool mayBeCompleted = !element && !mIsThermalKnown;
    bool isOfSome = false;
    if (mayBeCompleted) element = FindCompleted(draft, pairs, isOfSome);
    LockAcquire acquire{oldHandle, durationMs, {}, handle};
    if (element) {
        if (mayBreakThrough) StartBreakthrough(draft, *element, durationMs);
        acquire.list = element->list;
        acquire.isListAssumed = true;
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
    AddLine(draft);
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

void StoryTeller::EventReleased() {
    const int cmdId = Number(0);
    const int index = Number(1);
    LogDraft& now = *mDraft;
    const bool isNext = now.kind == Kind::kCommand && now.isReleased && now.cmdId == cmdId &&
                        now.acquires == 0 && index > now.index;
    LogDraft& draft = isNext ? now : Begin(Kind::kCommand);
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
    AddLine(draft);
}

void StoryTeller::ActionDone(bool hasPayload) {
    const int cmdId = Number(1);
    const bool isScene =
        mDraft->kind == Kind::kScene && (mDraft->cmdId == -1 || mDraft->cmdId == cmdId);
    const bool isChain = mDraft->kind == Kind::kCommand && !mDraft->isReleased && !mDraft->isDone &&
                         (mDraft->cmdId == -1 || mDraft->cmdId == cmdId);
    // What the capture's first line belongs to may have begun before it.
    const bool isBegun = !mStory.isWhole && mEnds == 0 && mDraft->kind != Kind::kCommand;
    LogDraft& draft = isScene || isChain ? *mDraft : Begin(Kind::kCommand);
    if (!isBegun && !isScene && !draft.hasLock && !draft.isBoostless &&
        cmdId != tarquel::kCmdQuietOnSuccess) {
        TellLoss(
            fmt::format("command {} is done here, but the lines that tell what it did are missing "
                        "or out of order",
                        cmdId));
    }
    draft.cmdId = cmdId;
    draft.payloadCount = Number(2);
    if (hasPayload) draft.payload = Number(3);
    draft.isDone = true;
    AddLine(draft);
    if (isScene) Close(draft);
}

void StoryTeller::ScenePair() {
    const bool isNext = mDraft->kind == Kind::kScene && !mDraft->hasEffects &&
                        (Number(1) > 1 || mDraft->asked.empty());
    LogDraft& draft = isNext ? *mDraft : Begin(Kind::kScene);
    const int missing = Number(1) - draft.pairs - 1;
    if (missing > 0) {
        draft.hasGap = true;
        TellGap(fmt::format("value {} of a scene stands here, but the {} before it {} missing",
                            Number(1), missing, missing == 1 ? "is" : "are"));
    }
    draft.pairs = Number(1);
    draft.asked.push_back({Number(2), Number(3)});
    AddLine(draft);
}

}  // namespace lab

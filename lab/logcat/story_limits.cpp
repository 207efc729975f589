// Lines that tell what became of limits.
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "lab/logcat/story_teller.h"

namespace lab {

// The request whose limits the line at hand tells. `isFirst`: a line that comes before effects.
LogDraft& StoryTeller::Limit(bool isFirst) {
    LogDraft& draft = *mDraft;
    if (draft.kind == Kind::kScene && !isFirst) {
        draft.hasEffects = true;
        return draft;
    }
    if (draft.kind != Kind::kLimit || (isFirst && draft.hasEffects)) {
        const bool isCut = !mStory.isWhole && mEnds == 0;
        Begin(Kind::kLimit).isCut = isCut;
    }
    if (!isFirst) draft.hasEffects = true;
    return draft;
}

void StoryTeller::ControlType(LogDraft& draft) {
    const int type = Number(0);
    if (draft.asked.empty()) draft.set.push_back({kControlTypeTag, type});
    draft.controlTypes.push_back(type);
    mIsThermalKnown = true;
    if (type == 0) mThermal = 0;
    if (ThermalLevelOf(type) > 0) mThermal = ThermalLevelOf(type);
    const bool isReleased = type == 2 || type == 9 || type == 4 || type == 10;
    if (!isReleased) return;
    mThermal = -1;
    mBreakthroughEnd = Time{};
    Effect(draft, TimerEvent{TimerEvent::Kind::kDisarm, 0});
}

void StoryTeller::NoTagLock(LogDraft& draft) {
    if (!draft.set.empty()) LetGo(draft, mTagHandles[draft.set.back().tag]);
}

void StoryTeller::GroupPair(LogDraft& draft) {
    draft.groupList.insert(draft.groupList.end(), {Number(2), Number(3)});
}

void StoryTeller::ClientPair(LogDraft& draft) {
    const auto index = static_cast<size_t>(std::max(Number(0), 0));
    if (index == 0 && draft.kind == Kind::kLimit && !draft.asked.empty()) Close(draft);
    Limit(true);
    if (index != draft.asked.size()) {
        TellGap(fmt::format("tag {} of a request", index),
                static_cast<int>(index - std::min(index, draft.asked.size())));
    }
    draft.asked.push_back({Number(1), Number(5)});
}

void StoryTeller::SetConfig(LogDraft& draft) {
    const auto count = static_cast<size_t>(std::max(Number(0), 1));
    // Without SetDebug these lines are all that tells where a request ends.
    const bool isFull =
        draft.kind == Kind::kLimit && draft.asked.empty() && draft.set.size() >= count;
    if (isFull) Close(draft);
    mThermal = Number(4);
    mIsThermalKnown = true;
    Limit(false);
    draft.set.push_back({Number(1), Number(2)});
}

void StoryTeller::TagLock(LogDraft& draft) {
    ShowEarlier(draft);
    int& handle = mTagHandles[Number(0)];
    LetGo(draft, handle);
    handle = Number(1);
    Count(draft, handle);
    Effect(draft, LockAcquire{0, 0, {Number(2), Number(3)}, handle});
}

void StoryTeller::TagReleased(LogDraft& draft) {
    ShowEarlier(draft);
    const int held = mTagHandles[Number(0)];
    // A group's locks are let go with the same line.
    const bool isGroup = mGroups.count(Number(0)) > 0;
    if (held == 0 && !isGroup) {
        TellLoss(
            fmt::format("lock {} of tag {} is released here, but the line that takes it is "
                        "missing",
                        Number(1), Number(0)));
        LockAcquire unseen{0, 0, {}, Number(1)};
        unseen.isEarlier = true;
        unseen.earlierTag = Number(0);
        Effect(draft, std::move(unseen));
    }
    if (IsHeldLock(held) && held != Number(1)) {
        TellLoss(
            fmt::format("lock {} of tag {} is released here, but lock {} was taken for it since: "
                        "lines are missing or out of order",
                        Number(1), Number(0), held));
    }
    draft.lettingGo = 0;
    Effect(draft, LockRelease{Number(1), 0, true});
    mTagHandles[Number(0)] = 0;
}

void StoryTeller::GroupTaken(LogDraft& draft) {
    const bool isRefused = mLine->match.message == Message::kGroupRefused;
    const int handle = Number(isRefused ? 2 : 3);
    if (isRefused) draft.client = Number(0);
    if (!isRefused) mGroups.insert(Number(0));
    LockAcquire acquire{0, Number(1), draft.groupList, handle};
    // What the lock holds is told only in full: a line that is missing makes it unknown.
    if (!isRefused && acquire.list.size() != static_cast<size_t>(std::max(Number(2), 0))) {
        acquire.list.clear();
    }
    Count(draft, handle);
    Effect(draft, std::move(acquire));
}

void StoryTeller::TimerOver(LogDraft& draft) {
    const bool isIts = draft.kind == Kind::kLimit && draft.asked.empty() && draft.set.empty();
    if (!isIts) Begin(Kind::kLimit);
    const bool isFired = mLine->match.message == Message::kTimerRan;
    const auto kind = isFired ? TimerEvent::Kind::kFire : TimerEvent::Kind::kDisarm;
    draft.isTimer = true;
    draft.hasEffects = false;
    draft.effects.insert(draft.effects.begin(), {draft.at, TimerEvent{kind, 0}});
    mBreakthroughEnd = Time{};
}

void StoryTeller::Write(LogDraft& draft) {
    const int error = NodeError(EINVAL);
    const bool isPart = draft.kind == Kind::kLimit || draft.kind == Kind::kScene;
    const bool isRestoring =
        draft.kind == Kind::kLimit && draft.asked.empty() && draft.set.empty() && !draft.hasEffects;
    NodeAccess access{NodeAccess::Kind::kWrite, Word(0), "", "", "", error};
    // The line of a node that cannot be opened does not tell what was to be written.
    if (error != ENOENT) access.requested = std::to_string(Number(1));
    if (!isPart) return Stand(std::move(access));
    if (!isRestoring) Limit(false);
    Effect(draft, std::move(access));
    AddLine(draft);
}

}  // namespace lab

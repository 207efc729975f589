// Lines that tell what became of limits.
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "lab/logcat/story_teller.h"

namespace lab {

void StoryTeller::AddLimit() {
    switch (mLine->match.message) {
        case Message::kTimerRan:
            return TimerOver(TimerEvent::Kind::kFire);
        case Message::kTimerStopped:
            return TimerOver(TimerEvent::Kind::kDisarm);
        case Message::kClientTag: {
            LogDraft& draft = Limit(true);
            draft.client = Number(0);
            return AddLine(draft);
        }
        case Message::kClientOthers: {
            LogDraft& draft = Limit(true);
            draft.isMerged = true;
            return AddLine(draft);
        }
        case Message::kClientPair:
            return ClientPair();
        case Message::kSetConfig:
            return SetConfig();
        case Message::kTagLock:
            return TagLock();
        case Message::kTagRelease:
            return TagReleased();
        case Message::kGroupTaken:
            return GroupTaken(false);
        case Message::kGroupRefused:
            return GroupTaken(true);
        case Message::kGroupPair: {
            LogDraft& draft = Limit(false);
            draft.groupList.push_back(Number(2));
            draft.groupList.push_back(Number(3));
            return AddLine(draft);
        }
        case Message::kControlType: {
            const int type = Number(0);
            LogDraft& draft = Limit(false);
            if (draft.asked.empty()) draft.set.push_back({kControlTypeTag, type});
            draft.controlTypes.push_back(type);
            mIsThermalKnown = true;
            if (type == 0) mThermal = 0;
            if (ThermalLevelOf(type) > 0) mThermal = ThermalLevelOf(type);
            const bool isReleased = type == 2 || type == 9 || type == 4 || type == 10;
            if (isReleased) {
                mThermal = -1;
                mBreakthroughEnd = Time{};
                Effect(draft, TimerEvent{TimerEvent::Kind::kDisarm, 0});
            }
            return AddLine(draft);
        }
        case Message::kNoTagLock: {
            LogDraft& draft = Limit(false);
            if (!draft.set.empty()) LetGo(draft, mTagHandles[draft.set.back().tag]);
            return AddLine(draft);
        }
        case Message::kGroupRelease: {
            LogDraft& draft = Limit(false);
            draft.lettingGo = Number(0);
            return AddLine(draft);
        }
        case Message::kWriteNode:
            return Write(Number(0) > 0 ? 0 : EINVAL);
        case Message::kBadValue:
        case Message::kBadRequest:
        case Message::kBadTag:
            if (mStory.detail != LogDetail::kErrors) Limit(false).isRefused = true;
            [[fallthrough]];
        default:
            // With both switches off the errors stand alone: no request can be made of them.
            if (mStory.detail == LogDetail::kErrors) {
                return Stand(LogLine{mLine->priority, std::nullopt, mLine->text});
            }
            return AddLine(Limit(false));
    }
}

// The request whose limits the line at hand tells. `isFirst`: a line that comes before effects.
LogDraft& StoryTeller::Limit(bool isFirst) {
    LogDraft& draft = *mDraft;
    if (draft.kind == Kind::kScene && !isFirst) {
        draft.hasEffects = true;
        return draft;
    }
    if (draft.kind != Kind::kLimit || (isFirst && (draft.hasEffects || draft.isTimer))) {
        const bool isCut = !mStory.isWhole && mEnds == 0;
        Begin(Kind::kLimit).isCut = isCut;
    }
    if (!isFirst) draft.hasEffects = true;
    return draft;
}

void StoryTeller::ClientPair() {
    const auto index = static_cast<size_t>(std::max(Number(0), 0));
    if (index == 0 && mDraft->kind == Kind::kLimit && !mDraft->asked.empty()) Close(*mDraft);
    LogDraft& draft = Limit(true);
    if (index != draft.asked.size()) {
        TellGap(fmt::format("tag {} of a request stands here, but the {} before it {} missing",
                            index, index - std::min(index, draft.asked.size()),
                            index - std::min(index, draft.asked.size()) == 1 ? "is" : "are"));
    }
    draft.asked.push_back({Number(1), Number(5)});
    AddLine(draft);
}

void StoryTeller::SetConfig() {
    const auto count = static_cast<size_t>(std::max(Number(0), 1));
    // Without SetDebug these lines are all that tells where a request ends.
    const bool isFull =
        mDraft->kind == Kind::kLimit && mDraft->asked.empty() && mDraft->set.size() >= count;
    if (isFull) Close(*mDraft);
    mThermal = Number(4);
    mIsThermalKnown = true;
    LogDraft& draft = Limit(false);
    draft.set.push_back({Number(1), Number(2)});
    AddLine(draft);
}

void StoryTeller::TagLock() {
    LogDraft& draft = Limit(false);
    ShowEarlier(draft);
    int& handle = mTagHandles[Number(0)];
    LetGo(draft, handle);
    handle = Number(1);
    Count(draft, handle);
    Effect(draft, LockAcquire{0, 0, {Number(2), Number(3)}, handle});
    AddLine(draft);
}

void StoryTeller::TagReleased() {
    LogDraft& draft = Limit(false);
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
    AddLine(draft);
}

void StoryTeller::GroupTaken(bool isRefused) {
    LogDraft& draft = Limit(false);
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
    AddLine(draft);
}

void StoryTeller::TimerOver(TimerEvent::Kind kind) {
    const bool isIts = mDraft->kind == Kind::kLimit && mDraft->asked.empty() && mDraft->set.empty();
    LogDraft& draft = isIts ? *mDraft : Begin(Kind::kLimit);
    draft.isTimer = true;
    draft.hasEffects = false;
    draft.effects.insert(draft.effects.begin(), {draft.at, TimerEvent{kind, 0}});
    mBreakthroughEnd = Time{};
    AddLine(draft);
    Close(draft);
}

void StoryTeller::Write(int error) {
    const bool isPart = mDraft->kind == Kind::kLimit || mDraft->kind == Kind::kScene;
    const bool isRestoring = mDraft->kind == Kind::kLimit && mDraft->asked.empty() &&
                             mDraft->set.empty() && !mDraft->hasEffects;
    NodeAccess access{NodeAccess::Kind::kWrite, Word(0), "", "", "", error};
    // The line of a node that cannot be opened does not tell what was to be written.
    if (error != ENOENT) access.requested = std::to_string(Number(1));
    if (!isPart) return Stand(std::move(access));
    LogDraft& draft = isRestoring ? *mDraft : Limit(false);
    Effect(draft, std::move(access));
    AddLine(draft);
}

}  // namespace lab

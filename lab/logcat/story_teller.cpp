#include "lab/logcat/story_teller.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "base/ids.h"

namespace lab {
namespace {

// How long one query of several values takes at most; the next one may come soon.
constexpr Time kOneQuery = std::chrono::milliseconds(2);

// No request does so much; lines that go on and on are none.
constexpr size_t kMostEffects = 4096;

}  // namespace

void StoryTeller::Add(const CapturedLine& line) {
    mLine = &line;
    mShown = mEarlier.Add(line);
    if (mShown && mBegun.count(mShown->handle) > 0) mShown.reset();
    CheckRestart();
    CloseOld();
    HandOn();
    mDraft = &mDrafts[{line.pid, line.tid}];
    if (line.match.isTorn) mStory.lastLoss = {line.line, line.at};
    if (mDraft->effects.size() > kMostEffects) Close(*mDraft);
    const bool isInOrder = mOrder.Add(line, mStory.detail == LogDetail::kFull);
    Dispatch();
    const bool isTold = !mStory.problems.empty() && mStory.problems.back().line == line.line;
    if (!isInOrder && !isTold)
        TellLoss("lines of this thread are missing or out of order above this one");
}

// What is done with each message; the others are remarks of the request under way.
const std::map<Message, StoryTeller::Handler>& StoryTeller::Handlers() {
    using Of = Handler::Of;
    // clang-format off
    static const std::map<Message, Handler> handlers = {
        {Message::kActionDone,     {Of::kFound,       &StoryTeller::ActionDone}},
        {Message::kActionDoneBare, {Of::kFound,       &StoryTeller::ActionDone}},
        {Message::kBoostsDisabled, {Of::kFound,       &StoryTeller::Boostless}},
        {Message::kCommonLock,     {Of::kCommand,     &StoryTeller::CommonLock}},
        {Message::kLockRefused,    {Of::kFound,       &StoryTeller::Acquired}},
        {Message::kLockTaken,      {Of::kFound,       &StoryTeller::Acquired}},
        {Message::kOnDemand,       {Of::kCommand,     &StoryTeller::OnDemand}},
        {Message::kSceneZero,      {Of::kFound,       &StoryTeller::SceneZero}},
        {Message::kScenePair,      {Of::kFound,       &StoryTeller::ScenePair}},
        {Message::kTaskId,         {Of::kFound,       &StoryTeller::TaskId}},
        {Message::kNoTaskId,       {Of::kFound,       &StoryTeller::TaskId}},
        {Message::kEventReleased,  {Of::kFound,       &StoryTeller::EventReleased}},
        {Message::kEventFresh,     {Of::kFound,       &StoryTeller::EventKey}},
        {Message::kEventHeld,      {Of::kFound,       &StoryTeller::EventKey}},
        {Message::kEventCached,    {Of::kFound,       &StoryTeller::EventKey}},
        {Message::kTimerRan,       {Of::kFound,       &StoryTeller::TimerOver}},
        {Message::kTimerStopped,   {Of::kFound,       &StoryTeller::TimerOver}},
        {Message::kControlType,    {Of::kLimit,       &StoryTeller::ControlType}},
        {Message::kSetConfig,      {Of::kFound,       &StoryTeller::SetConfig}},
        {Message::kTagLock,        {Of::kLimit,       &StoryTeller::TagLock}},
        {Message::kTagRelease,     {Of::kLimit,       &StoryTeller::TagReleased}},
        {Message::kNoTagLock,      {Of::kLimit,       &StoryTeller::NoTagLock}},
        {Message::kTagNotHeld,     {Of::kLimitRemark, nullptr}},
        {Message::kTagNotGot,      {Of::kLimitRemark, nullptr}},
        {Message::kConfigZero,     {Of::kLimitRemark, nullptr}},
        {Message::kGroupRelease,   {Of::kLimit,       &StoryTeller::GroupRelease}},
        {Message::kGroupPair,      {Of::kLimit,       &StoryTeller::GroupPair}},
        {Message::kGroupTaken,     {Of::kLimit,       &StoryTeller::GroupTaken}},
        {Message::kGroupRefused,   {Of::kLimit,       &StoryTeller::GroupTaken}},
        {Message::kClientTag,      {Of::kLimitBegin,  &StoryTeller::ClientTag}},
        {Message::kClientOthers,   {Of::kLimitBegin,  &StoryTeller::Merged}},
        {Message::kClientPair,     {Of::kFound,       &StoryTeller::ClientPair}},
        {Message::kBadValue,       {Of::kLimitRemark, &StoryTeller::LimitRefused}},
        {Message::kBadRequest,     {Of::kLimitRemark, &StoryTeller::LimitRefused}},
        {Message::kBadTag,         {Of::kLimitRemark, &StoryTeller::LimitRefused}},
        {Message::kLimitEffect,    {Of::kLimitRemark, nullptr}},
        {Message::kReadNode,       {Of::kFound,       &StoryTeller::Read}},
        {Message::kReadMissing,    {Of::kFound,       &StoryTeller::Read}},
        {Message::kWriteNode,      {Of::kNone,        &StoryTeller::Write}},
        {Message::kWriteMissing,   {Of::kNone,        &StoryTeller::Write}},
        {Message::kInterOpen,      {Of::kNone,        &StoryTeller::WriteInter}},
        {Message::kInterWrite,     {Of::kNone,        &StoryTeller::WriteInter}},
        {Message::kCeiling,        {Of::kFound,       &StoryTeller::Ceiling}},
        {Message::kLinesLost,      {Of::kNone,        &StoryTeller::LinesLost}},
    };
    // clang-format on
    return handlers;
}

void StoryTeller::Dispatch() {
    const auto found = Handlers().find(mLine->match.message);
    if (found == Handlers().end()) return Remark();
    using Of = Handler::Of;
    const auto [of, tell] = found->second;
    const bool isOfLimit = of == Of::kLimit || of == Of::kLimitBegin || of == Of::kLimitRemark;
    // With both switches off the errors stand alone: no request can be made of them.
    if (of == Of::kLimitRemark && mStory.detail == LogDetail::kErrors) return Stand(Shown());
    if (of == Of::kCommand) Command(Number(0));
    if (isOfLimit) Limit(of == Of::kLimitBegin);
    LogDraft& draft = *mDraft;
    if (tell) (this->*tell)(draft);
    if (of == Of::kNone) return;
    AddLine(draft);
    // No line of theirs comes behind it.
    if (draft.isTimer || (draft.kind == Kind::kScene && draft.isDone)) Close(draft);
}

void StoryTeller::Flush() {
    CloseAll();
    HandOn();
}

// Requests of several threads overlap: one that has ended waits for those that began before it.
void StoryTeller::Tell(LogRequest&& request) {
    const Place place(request.at, request.line);
    mEnded.emplace(place, std::move(request));
}

void StoryTeller::HandOn() {
    if (mEnded.empty()) return;
    std::optional<Place> first;
    for (const auto& [thread, draft] : mDrafts) {
        if (draft.kind == Kind::kNone) continue;
        const Place place(draft.at, draft.line);
        if (!first || place < *first) first = place;
    }
    while (!mEnded.empty() && (!first || mEnded.begin()->first < *first)) {
        LogRequest request = std::move(mEnded.begin()->second);
        mEnded.erase(mEnded.begin());
        mSink(std::move(request));
    }
}

void StoryTeller::CloseOld() {
    for (auto draft = mDrafts.begin(); draft != mDrafts.end();) {
        if (draft->second.IsOver(mLine->at)) Close(draft->second);
        // Threads come and go.
        const bool isGone = draft->second.kind == Kind::kNone;
        draft = isGone ? mDrafts.erase(draft) : std::next(draft);
    }
}

int& StoryTeller::HandleOf(const EarlierLock& lock) {
    return lock.kind == EarlierLock::Kind::kTag ? mTagHandles[lock.key]
                                                : mEventHandles[{lock.key, lock.index}];
}

// The lock of an element holds what the scene file says.
void StoryTeller::Assume(LockAcquire& acquire, const CommandLists::Element& element) {
    acquire.list = element.list;
    acquire.isListAssumed = true;
}

LockAcquire StoryTeller::AcquireOf(const EarlierLock& lock) {
    LockAcquire acquire{0, 0, {}, lock.handle};
    acquire.isEarlier = true;
    acquire.isDoubtful = !lock.isCertain;
    if (lock.kind == EarlierLock::Kind::kTag) {
        acquire.earlierTag = lock.key;
        return acquire;
    }
    for (const auto& element : mLists.Elements(lock.key, 0, std::nullopt)) {
        if (element.index != lock.index) continue;
        Assume(acquire, element);
        // What has no time cannot have run out.
        if (element.durationMs == 0) acquire.isDoubtful = false;
    }
    return acquire;
}

void StoryTeller::BeginWith(const std::vector<EarlierLock>& locks, bool isWhole) {
    mIsThermalKnown = mStory.isWhole = isWhole;
    int place = 0;
    for (const EarlierLock& lock : locks) {
        const LockAcquire acquire = AcquireOf(lock);
        // One that had a time did not hold all that while: it is told where it is let go.
        if (acquire.isDoubtful) continue;
        HandleOf(lock) = lock.handle;
        mBegun.insert(lock.handle);
        LogRequest request;
        request.line = lock.line;
        request.isEarlier = true;
        if (lock.kind == EarlierLock::Kind::kEvent) {
            const auto [name, label] = mWriter.NamesOf(lock.key);
            request.command = name;
            request.text = "on " + label + ", before the capture begins";
            RequestFacts facts;
            facts.who = label;
            facts.cmdId = lock.key;
            facts.isEarlier = true;
            facts.event = RequestFacts::Event::kBegins;
            request.facts = std::make_shared<const RequestFacts>(std::move(facts));
        } else {
            request.text =
                "a limit of " + mWriter.LabelOf(lock.key) + ", before the capture begins";
        }
        request.effects.push_back({Time(0), acquire});
        mEnded.emplace(Place(Time::min(), place++), std::move(request));
    }
}

// A lock from before the capture that the line at hand is the first to tell of.
void StoryTeller::ShowEarlier(LogDraft& draft) {
    if (!mShown) return;
    HandleOf(*mShown) = mShown->handle;
    Effect(draft, AcquireOf(*mShown));
    mShown.reset();
}

// Another process is another server, with an adapter that holds nothing.
void StoryTeller::CheckRestart() {
    if (mLine->pid == 0 || !mPids.insert(mLine->pid).second || mPids.size() == 1) return;
    CloseAll();
    mEventHandles.clear();
    mTagHandles.clear();
    mCommonHandle = 0;
    mThermal = 0;
    mIsThermalKnown = true;
    LogRequest restart;
    restart.at = mLine->at;
    restart.line = mLine->line;
    restart.isRestart = true;
    RequestFacts facts;
    facts.isRestart = true;
    restart.facts = std::make_shared<const RequestFacts>(std::move(facts));
    restart.text = fmt::format("the policy server begins anew, as process {}", mLine->pid);
    Tell(std::move(restart));
}

void StoryTeller::LinesLost(LogDraft&) {
    Tell(fmt::format(
        "the logger dropped {} of the plug-in's process here; what they told is missing",
        Number(0) == 1 ? "a line" : fmt::format("{} lines", Number(0))));
}

void StoryTeller::WriteInter(LogDraft&) {
    const bool isOpen = mLine->match.message == Message::kInterOpen;
    Stand(NodeAccess{NodeAccess::Kind::kWrite, Word(isOpen ? 0 : 1), isOpen ? "" : Word(0), "", "",
                     Number(0)});
}

void StoryTeller::Ceiling(LogDraft& draft) {
    const bool isNext = draft.kind == Kind::kCeilings && draft.cmdId == Number(0) &&
                        !draft.indices.contains(Number(1));
    if (!isNext) Begin(Kind::kCeilings);
    draft.indices.insert(Number(1));
    draft.cmdId = Number(0);
    draft.ceilings.push_back({Number(1), Number(2)});
}

// A line that tells nothing by itself belongs to the request under way.
void StoryTeller::Remark() {
    if (mDraft->kind != Kind::kNone) return AddLine(*mDraft);
    Stand(Shown());
}

LogDraft& StoryTeller::Begin(Kind kind) {
    Close(*mDraft);
    mDraft->kind = kind;
    mDraft->at = mDraft->last = mLine->at;
    mDraft->line = mLine->line;
    return *mDraft;
}

void StoryTeller::AddLine(LogDraft& draft) {
    draft.last = mLine->at;
    Effect(draft, Shown());
}

void StoryTeller::TellGap(const std::string& what, int missing) {
    if (!mStory.isWhole && mEnds == 0) return;
    TellLoss(fmt::format("{} stands here, but the {} before it {} missing", what, missing,
                         missing == 1 ? "is" : "are"));
}

// Something that belongs to no request.
void StoryTeller::Stand(What what) {
    const bool isLine = std::holds_alternative<LogLine>(what);
    LogRequest lone;
    lone.at = mLine->at;
    lone.line = mLine->line;
    lone.isRequest = false;
    lone.effects.push_back({mLine->at, std::move(what)});
    if (!isLine) lone.effects.push_back({mLine->at, Shown()});
    Tell(std::move(lone));
}

void StoryTeller::Close(LogDraft& draft) {
    if (draft.kind == Kind::kNone) return;
    const bool isRestored = draft.kind == Kind::kLimit && draft.asked.empty() &&
                            draft.set.empty() && !draft.hasEffects && !draft.isTimer;
    // Without SetDebug the restoring of limits has no line of its own.
    if (isRestored && draft.client == tarquel::kClientTemp &&
        mStory.detail == LogDetail::kVersion) {
        draft.effects.insert(draft.effects.begin(),
                             {draft.at, TimerEvent{TimerEvent::Kind::kFire, 0}});
    }
    if (IsHeldLock(draft.lettingGo)) {
        draft.effects.push_back({draft.last, LockRelease{draft.lettingGo, 0, true}});
    }
    ++mEnds;
    Tell(mWriter.Finish(std::move(draft)));
    draft = LogDraft{};
}

void StoryTeller::CloseAll() {
    for (auto& [thread, draft] : mDrafts) Close(draft);
}

void StoryTeller::LetGo(LogDraft& draft, int& handle) {
    if (IsHeldLock(handle)) Effect(draft, LockRelease{handle, 0, true});
    handle = 0;
}

void StoryTeller::Count(LogDraft& draft, int handle) {
    ++draft.acquires;
    if (handle >= 1) return;
    draft.isRefusedLate = draft.isRefusedLate || draft.acquires - 1 > draft.refusals;
    if (!draft.isRefusedLate) ++draft.refusals;
    draft.refusal = handle;
}

// A node that cannot be opened has a line without a number.
int StoryTeller::NodeError(int failure) const {
    if (mLine->match.numbers.empty()) return ENOENT;
    return Number(0) > 0 ? 0 : failure;
}

void StoryTeller::Read(LogDraft& draft) {
    const int error = NodeError(EIO);
    const bool isNext = draft.kind == Kind::kRead && mLine->at - draft.at <= kOneQuery &&
                        std::none_of(draft.reads.begin(), draft.reads.end(),
                                     [this](const auto& read) { return read.first == Word(0); });
    if (!isNext) Begin(Kind::kRead);
    NodeAccess access{NodeAccess::Kind::kRead, Word(0), "", "", "", error};
    if (error == 0) {
        access.before = access.after = std::to_string(Number(1));
        draft.reads.emplace_back(Word(0), Number(1));
    }
    Effect(draft, std::move(access));
}

}  // namespace lab

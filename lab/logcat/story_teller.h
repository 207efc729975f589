// Goes through the plug-in's log lines, one request under way for each thread.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "lab/logcat/earlier_locks.h"
#include "lab/logcat/line_order.h"
#include "lab/logcat/log_draft.h"
#include "lab/logcat/log_story.h"

namespace lab {

class StoryTeller {
  public:
    using Sink = std::function<void(LogRequest&&)>;

    // Rebuilds the requests. Never fails: a line that fits nowhere stands for itself.
    //   nodes   of the phone, with the tags that they belong to
    //   scenes  names the commands; `lists` tells what they hold
    //   story   its detail is how much of the plug-in's lines is seen so far
    //   sink    gets each request when it has ended, in the order in which they began
    StoryTeller(const KnownNodes& nodes, const SceneFile& scenes, CommandLists& lists,
                LogStory& story, Sink sink)
        : mWriter(nodes, scenes, lists, story),
          mLists(lists),
          mStory(story),
          mSink(std::move(sink)) {}

    // Before the first line: the locks that are known to have been taken before the capture begins.
    // Others are told where a line shows them. `isWhole`: nothing comes before it.
    void BeginWith(const std::vector<EarlierLock>& locks, bool isWhole);

    void Add(const CapturedLine& line);

    // Takes the requests under way as ended: the capture pauses, or is over.
    void Flush();

  private:
    using Kind = LogDraft::Kind;
    using Thread = std::pair<int, int>;
    using Place = std::pair<Time, int>;  // when a request began, and in which line

    static constexpr int kMostLosses = 1000;

    // The numbers of the line at hand.
    int Number(size_t index) const { return static_cast<int>(mLine->match.numbers.at(index)); }
    const std::string& Word(size_t index) const { return mLine->match.words.at(index); }

    // What is done with a line.
    struct Handler {
        // The request under way that it belongs to.
        enum class Of : uint8_t {
            kNone,         // `tell` does all
            kFound,        // `tell` finds it
            kCommand,      // the chain of the command that it names
            kLimit,        // limits, or the effects of a scene
            kLimitBegin,   // limits, before their effects
            kLimitRemark,  // as kLimit; errors that stand alone make no request
        } of;
        void (StoryTeller::*tell)(LogDraft& draft);  // null: it tells nothing by itself
    };
    static const std::map<Message, Handler>& Handlers();

    void Dispatch();
    LogDraft& Begin(Kind kind);
    LogDraft& Command(int cmdId, int index = -1);
    LogDraft& Limit(bool isFirst);
    void Close(LogDraft& draft);
    void CloseAll();
    void CloseOld();
    void Tell(LogRequest&& request);
    void HandOn();
    void AddLine(LogDraft& draft);
    void Remark();
    void Stand(What what);
    LogLine Shown() const { return {mLine->priority, std::nullopt, mLine->text}; }
    void Effect(LogDraft& draft, What what) { draft.effects.push_back({mLine->at, what}); }

    // Handlers. `draft` is the thread's request under way, or the one that the line belongs to.
    void ActionDone(LogDraft& draft);
    void Acquired(LogDraft& draft);
    void Boostless(LogDraft& draft);
    void Ceiling(LogDraft& draft);
    void ClientPair(LogDraft& draft);
    void ClientTag(LogDraft& draft) { draft.client = Number(0); }
    void CommonLock(LogDraft& draft);
    void ControlType(LogDraft& draft);
    void EventKey(LogDraft& draft);
    void EventReleased(LogDraft& draft);
    void GroupPair(LogDraft& draft);
    void GroupRelease(LogDraft& draft) { draft.lettingGo = Number(0); }
    void GroupTaken(LogDraft& draft);
    void LimitRefused(LogDraft& draft) { draft.isRefused = true; }
    void LinesLost(LogDraft& draft);
    void Merged(LogDraft& draft) { draft.isMerged = true; }
    void NoTagLock(LogDraft& draft);
    void OnDemand(LogDraft& draft) { draft.onDemandMs = Number(1); }
    void Read(LogDraft& draft);
    void ScenePair(LogDraft& draft);
    void SceneZero(LogDraft& draft);
    void SetConfig(LogDraft& draft);
    void TagLock(LogDraft& draft);
    void TagReleased(LogDraft& draft);
    void TaskId(LogDraft& draft);
    void TimerOver(LogDraft& draft);
    void Write(LogDraft& draft);
    void WriteInter(LogDraft& draft);
    int NodeError(int failure) const;

    void Count(LogDraft& draft, int handle);
    void LetGo(LogDraft& draft, int& handle);
    int& HandleOf(const EarlierLock& lock);
    LockAcquire AcquireOf(const EarlierLock& lock);
    static void Assume(LockAcquire& acquire, const CommandLists::Element& element);
    void ShowEarlier(LogDraft& draft);
    const CommandLists::Element* FindElement(const LogDraft& draft, int pairs, int durationMs,
                                             int thermal);
    const CommandLists::Element* FindCompleted(const LogDraft& draft, int pairs, bool& isOfSome);
    bool HasMoreElements(const LogDraft& draft, int index) const;
    void CheckDuration(const LogDraft& draft, const CommandLists::Element& element,
                       LockAcquire& acquire);
    void StartBreakthrough(LogDraft& draft, const CommandLists::Element& element, int durationMs);
    void CheckRestart();
    void Tell(const std::string& message) {
        mStory.problems.push_back({mLine->line, mLine->line, message});
    }
    // So many lines before `what` are missing, unless it is that the capture's first lines belong
    // to a request that began before.
    void TellGap(const std::string& what, int missing);
    // Lines that should be there are not.
    void TellLoss(const std::string& message) {
        if (++mLosses <= kMostLosses) Tell(message);
        if (mLosses == kMostLosses) Tell("... and more lines are missing");
        mStory.lastLoss = {mLine->line, mLine->at};
    }

    DraftWriter mWriter;
    CommandLists& mLists;
    LogStory& mStory;
    const Sink mSink;
    const CapturedLine* mLine = nullptr;
    std::multimap<Place, LogRequest> mEnded;  // that wait for one which began earlier
    std::map<Thread, LogDraft> mDrafts;
    LogDraft* mDraft = nullptr;  // of the thread at hand
    std::set<int> mPids;
    std::set<std::tuple<int, int, int>> mToldDurations;  // by command, element and ms
    std::set<int> mTold;  // commands whose lists have been found not to fit

    int64_t mEnds = 0;  // of requests
    LineOrder mOrder;
    int mLosses = 0;  // that are told
    EarlierLocks mEarlier;
    std::optional<EarlierLock> mShown;  // by the line at hand
    std::set<int> mBegun;               // handles of earlier locks that are told already
    std::map<std::pair<int, int>, int> mEventHandles;  // by command and index
    std::map<int, int> mTagHandles;
    std::set<int> mGroups;  // whose locks have been seen
    int mCommonHandle = 0;
    int mThermal = 0;
    bool mIsThermalKnown = false;  // a line has told it, or the server's start
    Time mBreakthroughEnd{};
};

}  // namespace lab

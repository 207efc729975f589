// The book: who asks for what, which lock carries it, and what became of what was asked before.
// Kept from the phone's events alone, of a run or of a real phone's log; everything that the lab
// shows of requesters and locks is read from here.
//
// There are two layers. A client's or a long scene's word on a tag stands until the same requester
// says otherwise; the plug-in carries the arbitrated value by one lock for the tag, which belongs
// to whoever asks for that value now. A lock of a command or of a group speaks for itself.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "lab/book/node_target.h"
#include "lab/book/request_facts.h"
#include "lab/book/run_conditions.h"
#include "lab/hal/perf_hal.h"
#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/events.h"
#include "lab/phone/kernel.h"
#include "lab/scenes/scene_file.h"

namespace lab {

// A request as the book keeps it, for as long as something of it is in force.
struct BookedRequest {
    size_t number = 0;  // the first is 1; 0: the time before it
    Time begin{};
    std::string text = "the start";  // "on touch (4098)"
    int line = 0;                    // of the scenario or capture; 0: none
    std::shared_ptr<const RequestFacts> facts;

    // "'on touch (4098)' (line 12)".
    std::string Quoted() const;
};
using RequestPtr = std::shared_ptr<const BookedRequest>;

// " (line 12)"; nothing for 0.
std::string AtLine(int line);

// A requester's word on a tag, a lock's on a resource, a program's on a node.
struct Ask {
    enum class By : uint8_t {
        kClient,  // a client's word on a tag
        kScene,   // a long scene's word on a tag
        kLock,    // a lock of a command or of a group
        kWrite,   // a write without a lock, of the plug-in or of the scenario
    };

    By by = By::kLock;
    std::string who;          // "thermal", "power_save (12288)", "camera's group"
    RequestPtr request;       // that asked; a write's may be over
    int tag = -1;             // of kClient and kScene
    int opcode = 0;           // all but kWrite
    int64_t value = 0;        // in `unit`
    std::string path;         // of kWrite
    std::string text;         // of kWrite: as written
    Unit unit = Unit::kNone;  // of the tag, or of the HAL
    Bound bound = Bound::kExact;
    bool isRemembered = false;  // the frequency manager weighs it against later requests
    Time since{};
    std::optional<Time> until;  // when it ends by itself
    int handle = 0;             // of kLock
    std::string remark;         // what befell it without ending it
    bool isAfterwards = false;  // of kWrite: it was done when its request was over
    bool isEarlier = false;     // made before a capture begins: nobody knows since when
    bool isOver = false;        // its end was passed over: it stands, but nobody wants it
    uint64_t order = 0;         // in which asks were made

    // "<= 1651.2 MHz".
    std::string ValueText() const;

    // "limit by thermal: big_max <= 1651.2 MHz".
    std::string RequestText() const;
};

struct EndedAsk {
    Ask ask;
    Time at{};
    std::string how;
};

// A lock that the HAL holds.
struct BookedLock {
    // A node that a pair of the list drives.
    struct Driven {
        size_t node = 0;  // a number for its path
        Drive drive;
    };

    int handle = 0;
    size_t number = 0;      // of all locks taken, from 0
    int tag = -1;           // whose arbitrated value it carries; -1: a command's or a group's
    std::vector<int> list;  // opcode, value, ...; empty: nothing tells
    Time since{};           // taken; a renewal does not change it
    Time renewed{};         // taken or last renewed
    std::optional<Time> until;
    bool isEarlier = false;      // taken before a capture begins: since when and by whom is unknown
    bool isDoubtful = false;     // it may be that it is not held any more
    bool isListAssumed = false;  // what it holds is the scene file's word, not the log's
    size_t terms = 0;            // 1, and one more with each renewal
    RequestPtr takenBy;
    RequestPtr request;        // that took or last renewed it
    RunConditions conditions;  // at that time
    std::string owner;         // who asks for what it carries: "thermal", "touch (4098)"
    RequestPtr askedBy;        // with which the owner asks for it; null: nobody's
    std::string remark;        // what befell it
    uint64_t order = 0;        // of its last term
    std::vector<const std::vector<Driven>*> drives;  // of each pair
};

// Something wrong, with what it is about.
struct RunFinding {
    std::string text;
    std::optional<Time> at = std::nullopt;      // none: of the run as a whole
    size_t request = 0;                         // its number; 0: none
    std::optional<size_t> lock = std::nullopt;  // as BookedLock::number
};

class Book {
  public:
    // Takes the values of all nodes now as those after boot. Keeps references to all of them.
    Book(const DeviceProfile& device, const SceneFile& scenes, const Kernel& kernel);

    // From here on what ended of the asks on `target` is kept too.
    void KeepEnded(const NodeTarget& target) { mKept = target; }

    // Takes the events in order.
    void Observe(const Event& event);

    // Something that the run itself found wrong, such as a failed expectation.
    void AddFinding(RunFinding finding) { mFindings.push_back(std::move(finding)); }

    Layout ClusterLayout() const { return mLayout; }
    const Kernel& GetKernel() const { return mKernel; }
    Time Now() const { return mNow; }
    const RunConditions& Conditions() const { return mConditions; }

    // The lock, or null when it is not held.
    const BookedLock* FindLock(int handle) const;
    const std::map<int, BookedLock>& Locks() const { return mLocks; }  // by handle

    // The lock that the last event ended; null when it ended none.
    const BookedLock* EndedLock() const { return mEndedLock ? &*mEndedLock : nullptr; }

    // The locks that belong to another owner or request since the last event, by handle.
    const std::vector<int>& ChangedHands() const { return mChangedHands; }

    // The newest lock that carries the value of the tag with `opcode`; null when there is none.
    const BookedLock* FindTagLock(int opcode) const;

    // The request that released the last lock for the tag with `opcode`, "'limit by camera: big_max
    // lifted' (line 15)"; empty when none did.
    std::string WhoReleasedTag(int opcode) const;

    // True when the HAL refused the last lock for the tag with `opcode`.
    bool IsTagLockRefused(int opcode) const { return mRefusedTags.count(opcode) > 0; }

    // The words on tags in force, oldest first, and the one that the tag's lock is to carry: the
    // strictest of those that are weighed, or the last one that is not. Null when nobody asks.
    const std::vector<Ask>& Words() const { return mWords; }
    const Ask* StrictestWord(int tag) const;

    // Everybody who asks for something of the node now, oldest first.
    std::vector<Ask> AsksOn(const NodeTarget& target) const;

    // Who asked before, oldest first; a long run keeps the latest of them. Needs KeepEnded().
    const std::deque<EndedAsk>& Ended() const { return mEnded; }

    // What a program wrote last to the node and was taken; nothing when none did.
    std::optional<Ask> LastWrite(const NodeTarget& target) const;

    // What the locks claim on the node, oldest first, as the HAL weighs them.
    std::vector<PerfHal::Claim> ClaimsOn(const std::string& path) const;

    // How a pair of a lock stands against the other locks on its node.
    struct Contest {
        enum class How : uint8_t {
            kNone,
            kSame,
            kWins,
            kLoses,
            kLifts,
            kIsLifted
        } how = How::kNone;
        int rival = 0;  // its handle
        int opcode = 0;
        int value = 0;  // as the rival's lock has it
    };
    Contest ContestOf(int handle, int opcode, int value) const;

    // The claim that counts now where a lock with this pair ended, if it is a weaker one.
    std::optional<PerfHal::Claim> HeirOf(int opcode, int value) const;

    // True for a limit that is no stricter than the value after boot: its lock limits nothing.
    bool IsAtDefault(int opcode, int value) const;

    // True for a node that is nobody's, for it follows everything, or another name of one.
    static bool IsUnwatched(const std::string& path);

    // Everything found, with what is wrong about the nodes and locks as they are now.
    std::vector<RunFinding> Findings() const;

  private:
    // The last writes of a node.
    struct Writes {
        RequestPtr request;  // behind the last one
        bool byHal = false;
        std::optional<Ask> program;  // a program's, or the scenario's
    };

    // What never changes but for Arrange: copies of a book share it.
    struct AtBoot {
        std::map<std::string, std::string> values;           // node -> value after boot
        std::map<std::string, std::vector<int>> tagsOfNode;  // node -> tags
    };

    // What opcodes drive, looked up once; copies of a book share it.
    struct DriveTable {
        std::unordered_map<int, std::vector<BookedLock::Driven>> ofOpcode;
        std::unordered_map<std::string, size_t> nodes;  // a number for each path
    };

    void BeginRequest(const RequestBegin& begin);
    void EndRequest(const RequestEnd& end);
    void TakeWords(const RequestFacts& facts);
    void SetWord(Ask ask, const std::string& how, bool isHeard);
    void NoteRefusedWords(const RequestFacts& facts);
    const Ask* RefusedWord(const BookedLock& lock) const;
    void NoteUnheard(const RequestFacts& facts, const std::string& result);
    void NoteLimits(const RequestFacts& facts);
    void NoteCommand(const RequestFacts& facts, const std::string& result);
    void NotePassedEnd(const SceneElement& element, const std::string& who);
    void Arrange(const NodeAccess& access);

    void OnAcquire(const LockAcquire& acquire);
    void OnRefusal(const LockAcquire& acquire, int tag);
    void CheckAsked(const LockAcquire& acquire, size_t number);
    void EndLock(int handle, const std::string& how);
    void OnWrite(const NodeAccess& access);
    void SetOwner(BookedLock& lock);
    void LeaveOwner(BookedLock& lock);
    void GiveTo(BookedLock& lock, const std::string& owner, const RequestPtr& askedBy);
    void PruneStanding();

    const RequestFacts& Facts() const;
    bool IsTagLock(const LockAcquire& acquire) const;
    int TagOf(const std::vector<int>& list) const;
    std::string LockHolder() const;
    std::string WhyReleased() const;
    std::string WhyNoLock(const SceneElement& element, const std::string& result) const;
    std::string WhyNoBreakthrough(const BookedLock& lock, int opcode) const;
    bool IsNode(const NodeTarget& target, const std::string& path) const;
    std::vector<PerfHal::Claim> ClaimsOn(size_t node) const;
    std::vector<PerfHal::Claim> ClaimsOf(int opcode) const;
    bool IsOverwritten(const PerfHal::Claim& claim) const;
    std::string Errors() const;
    const std::vector<BookedLock::Driven>& DrivenBy(int opcode) const;

    Ask NewAsk(Ask::By by, const std::string& who) const;
    Ask TagAsk(Ask::By by, int tag, int value) const;
    Ask PairAsk(const BookedLock& lock, size_t at) const;
    void AddEnded(const Ask& ask, const std::string& how);

    // The end of a run (findings.cpp).
    std::string WhyLeaked(const BookedLock& lock) const;
    std::string WhyTagLeaked(const BookedLock& lock) const;
    bool IsExplained(const std::string& path) const;
    bool IsExplainedBy(int tag) const;
    bool IsAsked(int tag) const;
    std::optional<int> BoundOf(int tag) const;
    std::optional<int> BootValue(int tag) const;
    const Writes* FindWrites(const std::string& path) const;
    void AddNodeFindings(std::vector<RunFinding>& findings) const;
    static std::string Asker(const RequestPtr& request);

    const DeviceProfile& mDevice;
    const SceneFile& mScenes;
    const Kernel& mKernel;
    const Layout mLayout;
    std::shared_ptr<const AtBoot> mAtBoot;
    std::shared_ptr<DriveTable> mDrives;

    Time mNow{};
    RequestPtr mRequest;  // under way, or the last one
    bool mIsInRequest = false;
    bool mTookLock = false;
    bool mTookUntimedLock = false;
    std::set<int> mHeardTags;          // on which it has a word that their locks follow
    std::set<int> mLockedTags;         // that got a lock of their own in it
    std::set<int> mTouched;            // opcodes that its locks named
    std::vector<std::string> mErrors;  // the plug-in's, during it
    uint64_t mOrder = 0;

    std::vector<Ask> mWords;
    std::map<int, Ask> mRefusedWords;  // tag -> a client's in a refused request
    std::map<int, int> mLastWord;      // tag -> value asked last
    std::map<int, BookedLock> mLocks;
    size_t mLockCount = 0;
    std::map<int, int> mTagHandles;                     // tag -> its newest lock
    std::map<int, std::string> mTagReleasers;           // by opcode
    std::set<int> mRefusedTags;                         // by opcode
    std::map<std::string, std::set<size_t>> mStanding;  // name -> requests
    std::map<std::string, Writes> mWrites;              // by node
    std::optional<BookedLock> mEndedLock;
    std::vector<int> mChangedHands;
    RunConditions mConditions;
    int mRefusalsLeft = 0;
    std::optional<NodeTarget> mKept;  // whose ended asks are kept
    std::deque<EndedAsk> mEnded;
    std::vector<RunFinding> mFindings;
};

}  // namespace lab

// Who asked for what on one node during a run, and how each of these asks ended.
//
// There are two layers. A client's or a long scene's word on a tag stands until the same requester
// says otherwise; the plug-in carries the arbitrated value by one lock for the tag. A command's or
// a group's lock speaks for itself.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/book/node_target.h"
#include "lab/book/run_conditions.h"
#include "lab/phone/phone.h"
#include "lab/server/scenario.h"
#include "lab/server/server.h"

namespace lab {

struct NodeAsk {
    enum class By : uint8_t {
        kClient,  // a client's word on a tag
        kScene,   // a long scene's word on a tag
        kLock,    // a lock of a command or of a group
        kWrite,   // a write without a lock, of the plug-in or of the scenario
    };

    By by = By::kLock;
    std::string who;          // "thermal", "power_save (12288)", "camera's group"
    std::string request;      // the step that asked, in words
    int line = 0;             // of that step in the scenario; 0: none
    int tag = -1;             // of kClient and kScene
    int opcode = 0;           // all but kWrite
    int64_t value = 0;        // in `unit`
    std::string text;         // of kWrite: as written
    Unit unit = Unit::kNone;  // of the tag, or of the HAL
    Bound bound = Bound::kExact;
    bool isRemembered = false;  // the frequency manager weighs it against later requests
    Time since{};
    std::optional<Time> until;  // when it ends by itself
    int handle = 0;             // of kLock
    std::string remark;         // what befell it without ending it

    // "<= 1651.2 MHz".
    std::string ValueText() const;
};

struct EndedAsk {
    NodeAsk ask;
    Time at{};
    std::string how;
};

class NodeHistory {
  public:
    // Keeps references to all of them.
    NodeHistory(const NodeTarget& target, const SceneFile& scenes, const Kernel& kernel);

    // A request and what it came to; once for each, before its events.
    void Heed(const Step& step, const Server::Outcome& outcome);

    void Observe(const Event& event);

    // Oldest first. At most one write: the last that was accepted.
    const std::vector<NodeAsk>& InForce() const { return mInForce; }
    const std::optional<NodeAsk>& LastWrite() const { return mLastWrite; }

    // Oldest first; a long run keeps the latest of them.
    const std::deque<EndedAsk>& Ended() const { return mEnded; }

    // The lock that carries the arbitrated value of the tag with `opcode`; null when there is none.
    struct TagLock {
        int handle = 0;
        int value = 0;
        std::string request;
        int line = 0;
        Time since{};
    };
    const TagLock* FindTagLock(int opcode) const;
    const std::map<int, TagLock>& TagLocks() const { return mTagLocks; }  // by opcode

    // The request that released the last lock for the tag with `opcode`, "'limit by camera: big_max
    // lifted' (line 15)"; empty when none did.
    std::string WhoReleasedTag(int opcode) const;

    // True when the HAL refused the last lock for the tag with `opcode`.
    bool IsTagLockRefused(int opcode) const { return mRefusedTags.count(opcode) > 0; }

  private:
    struct Asked {
        Step step;
        Server::Outcome outcome;
    };

    void BeginRequest();
    void EndRequest();
    void OnLimits(const SetLimits& request);
    void OnCommand(const DoCommand& request);
    void OnLongScene(const DoCommand& request, const SceneCommand& command);
    void OnArrange(const ArrangeNodes& request);
    void OnAcquire(const LockAcquire& acquire);
    void OnPair(const LockAcquire& acquire, int opcode, int value);
    void OnWrite(const NodeAccess& access);

    NodeAsk NewAsk(NodeAsk::By by, const std::string& who) const;
    NodeAsk TagAsk(NodeAsk::By by, const std::string& who, int tag, int value) const;
    void SetClaim(const NodeAsk& ask, const std::string& how);
    void EndLock(int handle, const std::string& how);
    void EndAsk(size_t index, const std::string& how);
    void AddEnded(const NodeAsk& ask, const std::string& how);

    bool IsTagLock(const LockAcquire& acquire) const;
    std::string WhyNoBreakthrough(int opcode) const;
    std::string LockHolder() const;
    std::string WhyReleased() const;
    std::string WhyNoLock(const SceneElement& element) const;
    std::string Errors() const;
    std::string AtLine() const;

    const NodeTarget& mTarget;
    const SceneFile& mScenes;
    const Kernel& mKernel;
    const Layout mLayout;

    std::deque<Asked> mHeeded;
    Asked mRequest;  // under way, or the last one
    bool mIsInRequest = false;
    bool mIsTouched = false;           // it named the node in a lock
    std::vector<std::string> mErrors;  // the plug-in's, during it
    Time mNow{};

    std::vector<NodeAsk> mInForce;
    std::deque<EndedAsk> mEnded;
    std::map<int, TagLock> mTagLocks;
    std::map<int, std::string> mTagReleasers;  // by opcode
    std::set<int> mRefusedTags;
    std::optional<NodeAsk> mLastWrite;
    RunConditions mConditions;
};

}  // namespace lab

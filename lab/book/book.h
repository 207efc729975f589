// Who asked for what: the bookkeeping behind the checks at the end of a run.
//
// Each lock belongs to the request during which it was taken or last renewed, each node's value to
// the request that wrote it. A request stands until it is ended (an event by its end, an untimed
// command by the next one, a limit by being lifted). What is still held then and belongs to no
// standing request is a leak.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/hal/perf_hal.h"
#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/events.h"
#include "lab/phone/kernel.h"

namespace lab {

// Floors and ceilings that several requesters share: among those in force the strictest counts, and
// 0 lifts one. Every other tag does what it was told last.
bool IsSharedLimit(int tag);

// One requester's word on a tag, as requested; it stands until the same requester says otherwise.
struct Claim {
    std::string holder;  // "thermal", "scene 12290"
    int tag = 0;
    int value = 0;  // 0 lifts a limit
};

// What one request asks of the plug-in, told to the ledger once its result is known.
struct RequestFacts {
    std::string text;
    int line = 0;                    // of the scenario; 0 for the start
    std::optional<int> cmdId;        // of a command's request
    std::optional<int> clientId;     // of a client's
    bool mayLock = false;            // it asks for some lock
    std::set<int> opcodes;           // those that its locks may name
    std::string standing;            // "event 4098", "untimed", "group 98": locks held under a name
    bool replaces = false;           // the name's earlier locks end when this request takes one
    std::vector<std::string> ended;  // names that end here
    std::vector<Claim> claims;       // in force afterwards
    std::set<int> groupTags;         // tags that a group's one lock holds
    std::optional<int> arrangedRefusals;  // locks that the HAL is told to refuse from here on
    bool writesStay = false;              // its node writes are never undone, by design
};

class Ledger {
  public:
    // Takes the values of all nodes now as those after boot. Keeps references to the device and the
    // kernel.
    Ledger(const DeviceProfile& device, Layout layout, const Kernel& kernel);

    // The facts of the request whose events come next; once for each RequestBegin, in order.
    void Announce(RequestFacts facts);

    void Observe(const Event& event);

    // A node that the scenario itself sets or takes away: no one's leak.
    void Arrange(const std::string& path, const std::optional<std::string>& value);

    // Something that the run itself found wrong, such as a failed expectation.
    void AddFinding(const std::string& text) { mFindings.push_back(text); }

    // The request that `handle` belongs to, or null.
    const RequestFacts* Owner(int handle) const;

    // True for a limit that is no stricter than the value after boot: its lock limits nothing.
    bool IsAtDefault(int opcode, int value) const;

    // Everything found, with what is wrong about the nodes and locks as they are now.
    std::vector<std::string> Findings(const PerfHal& hal) const;

  private:
    struct Write {
        size_t request = 0;
        bool byHal = false;
    };

    // What never changes but for Arrange: copies of a ledger share it.
    struct AtBoot {
        std::map<std::string, std::string> values;           // node -> value after boot
        std::map<std::string, std::vector<int>> tagsOfNode;  // node -> tags
    };

    void OnAcquire(const LockAcquire& acquire, Time at);
    void CheckAsked(const LockAcquire& acquire, Time at);
    void Forget(int handle);
    void BeginRequest();
    void EndRequest();
    bool IsTagLock(const RequestFacts& owner, const std::vector<int>& list) const;
    int TagOf(const RequestFacts& owner, const std::vector<int>& list) const;
    std::string WhyLeaked(const PerfHal::Lock& lock) const;
    std::string WhyTagLeaked(const PerfHal::Lock& lock, int tag) const;
    bool IsExplained(const std::string& path, const PerfHal& hal) const;
    bool IsExplainedBy(int tag, const PerfHal& hal) const;
    bool IsAsked(int tag) const;
    std::optional<int> Bound(int tag) const;
    std::optional<int> BootValue(int tag) const;
    const Write* FindWrite(const std::string& path) const;
    void AddNodeFindings(const PerfHal& hal, std::vector<std::string>& findings) const;
    std::string Asker(size_t request) const;

    const DeviceProfile& mDevice;
    const Layout mLayout;
    const Kernel& mKernel;
    std::shared_ptr<const AtBoot> mAtBoot;

    std::deque<RequestFacts> mAnnounced;
    std::map<size_t, RequestFacts> mRequests;  // those that something still belongs to
    size_t mRequest = 0;                       // the one under way or the last one; 0: the start
    bool mInRequest = false;
    bool mTookLock = false;
    bool mTookUntimedLock = false;
    std::set<int> mLockedTags;  // that got a lock of their own in this request

    std::map<int, size_t> mOwners;                       // handle -> request
    std::map<std::string, std::set<size_t>> mStanding;   // name -> requests
    std::map<std::pair<std::string, int>, int> mClaims;  // holder, tag -> value
    std::map<int, int> mLastWord;                        // tag -> value asked last
    std::map<int, int> mTagHandles;                      // tag -> its newest lock
    std::map<int, int> mTagOfLock;                       // handle of a tag's lock -> tag
    std::map<std::string, Write> mWrites;                // node -> its last write
    int mRefusalsLeft = 0;
    std::vector<std::string> mFindings;
};

}  // namespace lab

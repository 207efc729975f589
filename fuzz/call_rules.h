// What the plug-in did to the perf HAL and to the nodes: counts, and the rules of the two
// interfaces that hold whoever asked for it.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/phone/events.h"

namespace fuzz {

struct Counts {
    uint64_t taken = 0;
    uint64_t renewed = 0;
    uint64_t released = 0;
    uint64_t expired = 0;
    uint64_t refused = 0;
    uint64_t nodeWrites = 0;    // by the plug-in
    uint64_t nodeRefusals = 0;  // of these, not taken by the kernel
};

// The rules:
//   a lock's list holds pairs, 32 at most for an action; its duration is 0 or above
//   only a handle that the HAL gave is renewed or released, and none twice; one that has run out
//   meanwhile may be released once, since nobody tells the plug-in
//   no node is written but those of the tags and of the interactive governor
class CallRules {
  public:
    explicit CallRules(const lab::DeviceProfile& device);

    void Observe(const lab::Event& event);

    // Locks that the plug-in lost when the HAL refused to renew them, and has not been told to end
    // since: it forgets such a handle, so that only time or the server can end them.
    const std::set<int>& Lost() const { return mLost; }

    const Counts& Totals() const { return mTotals; }

    // Every rule that was broken.
    const std::vector<std::string>& Findings() const { return mFindings; }

    // Forgets the locks and findings, not the counts and nodes.
    void Begin();

  private:
    enum class State : uint8_t { kNone, kHeld, kExpired, kReleased };

    // The state of a handle; kNone for one that the HAL did not give.
    State& StateOf(int handle);

    void OnAcquire(const lab::LockAcquire& call);
    void OnRelease(const lab::LockRelease& call);

    std::unordered_set<std::string> mKnownNodes;
    std::vector<State> mStates;  // by handle, less mFirstHandle
    int mFirstHandle = 0;
    std::set<int> mLost;
    Counts mTotals;
    std::vector<std::string> mFindings;
};

}  // namespace fuzz

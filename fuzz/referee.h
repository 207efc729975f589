// Plays requests on the plug-in and on the rule of limits, and says where the two differ.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/desk.h"
#include "fuzz/limit_rule.h"

namespace fuzz {

// One thing that is not as the rule says.
struct Difference {
    std::string what;      // "big_max's node reads", "locks held"
    std::string expected;  // by the rule
    std::string found;
    std::string expect;  // what a scenario can expect of it, "nodes: {...: 1}"; may be empty
};

class Referee {
  public:
    // Boots `device`, a shipped profile's name, on a virtual clock.
    explicit Referee(const std::string& device, lab::LimitWeighing weigh = lab::WinningValue);

    const lab::DeviceProfile& Device() const { return mDesk.Device(); }
    const lab::SceneFile& Scenes() const { return mDesk.Scenes(); }

    // A fresh plug-in on a phone as after boot, and a fresh rule.
    void Begin();

    // Lets the deed's time pass and does it, on both. Returns what is different afterwards; with
    // `judged` false nobody looks.
    std::vector<Difference> Play(const Deed& deed, bool judged = true);

    // All that the rule keeps, and all that can be seen of the plug-in and the phone, as text.
    std::string State();

    // How many requests were made.
    uint64_t RequestCount() const { return mRequestCount; }

  private:
    using Locks = std::vector<std::pair<std::vector<int>, int64_t>>;  // list, ms left; 0: no end

    int TellRule(const Deed& deed);
    int TellRule(const lab::DoCommand& command);
    const std::vector<lab::LimitRule::Element>& ElementsOf(int cmdId);
    void HandOn();
    Locks LocksHeld();
    Locks LocksByRule() const;
    std::vector<int> ClientWords();
    std::vector<int> ClientWordsByRule() const;
    int64_t TimerMs();
    void CompareNodes(std::vector<Difference>& differences);
    void ClearPhone();

    Desk mDesk;
    const lab::LimitWeighing mWeigh;
    std::optional<lab::LimitRule> mRule;
    std::vector<std::pair<int, std::string>> mNodes;  // tag, path
    std::map<std::string, std::string> mAtBoot;       // path of a limit -> the program's request
    std::map<std::pair<int, int>, std::vector<lab::LimitRule::Element>>
        mElements;                          // command, level
    std::set<std::string> mTouched;         // nodes written since the beginning
    std::vector<std::string> mStrayWrites;  // of the plug-in, to what is no limit's node
    std::optional<lab::Time> mTimerEnd;
    uint64_t mRequestCount = 0;
};

}  // namespace fuzz

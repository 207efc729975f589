// Who wins a limit, and what must follow from it: the rule by which the limits of several
// requesters meet. It is told what is asked and says what the phone must look like; it shares
// nothing with the plug-in, so that the two can be compared.
//
// Limits are the floors and ceilings that requesters share, of each CPU cluster and of the GPU.
// Values are in the nodes' units, kHz and for the GPU Hz; 0 asks for no limit.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/limit_phone.h"
#include "lab/book/limit_words.h"
#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"

namespace lab {

// How words on a tag are weighed: WinningValue, or what a test puts in its place.
using LimitWeighing = int (*)(int tag, const std::vector<LimitWord>& words);

class LimitRule {
  public:
    struct Asked {
        int tag = 0;
        int value = 0;
    };

    // What one element of a command asks for, as it is when it is sent.
    struct Element {
        int cmdId = 0;
        int index = 0;       // in its command
        int durationMs = 0;  // 0: until its event ends or, without one, the next such element runs
        int boostLimitLevel = -1;  // the highest thermal level that it breaks through
        bool mayBreakThrough = true;
        std::vector<int> list;  // opcode, value, ...
    };

    // An event's beginning, its end, or no event.
    enum class Moment : uint8_t { kOnce, kBegins, kEnds };

    // As after boot. Keeps a reference to the device.
    LimitRule(const DeviceProfile& device, Layout layout, LimitWeighing weigh = WinningValue);

    // A client's request of one tag or more. Of tags that are no limits the control type counts,
    // and the group's marker in the first place; what a group's lock holds of others is as given.
    // Core isolation is on. Returns what the request returns.
    int Limit(int clientId, const std::vector<Asked>& asked);

    // A long scene's, whose tags are limits.
    int Scene(int cmdId, const std::vector<Asked>& asked, Moment moment);

    // An element of any other command, but 5378 and 5379.
    void Run(const Element& element, Moment moment);

    // Time passes: locks run out, and a breakthrough ends.
    void Pass(int64_t ms);

    // Of one limit: who asks for what, oldest first.
    const std::vector<LimitWord>& WordsOn(int tag) const { return Of(tag).words; }
    // A word of a refused request, which its requester is not held to; long scenes are weighed
    // against it all the same, until a client speaks again.
    const std::optional<LimitWord>& RefusedOn(int tag) const { return Of(tag).refused; }
    // What its own lock holds, in the HAL's unit; nothing when there is none.
    std::optional<int> LockOf(int tag) const;
    // What the plug-in last wrote to its node; nothing while it has not.
    std::optional<int> WrittenTo(int tag) const { return Of(tag).written; }
    // What the client asked for last that later requests are weighed against.
    std::optional<int> Remembered(int clientId, int tag) const;

    int Performance() const { return mPerformance; }
    int ThermalLevel() const { return mThermalLevel; }

    // How long the breakthrough still lasts; 0 when none runs.
    int64_t BreakthroughMs() const;

    // All locks, and what the limits' nodes read.
    const LimitPhone& Phone() const { return mPhone; }
    int64_t NowMs() const { return mNowMs; }

    // Everything that a later answer may depend on, as text: equal texts, equal futures. Times are
    // relative, locks without their numbers; who spoke first is not in it.
    std::string Summary() const;

  private:
    struct TagState {
        std::vector<LimitWord> words;
        std::optional<LimitWord> refused;
        std::optional<int> lock;  // its number on the phone
        std::optional<int> written;
        std::optional<int> thermal;  // of a CPU's ceiling: what a write-back writes; 0: the default
        bool isSparedOnce = false;   // the next write-back leaves it alone
    };

    // A cluster's range, or the GPU's: what the plug-in takes to be in force.
    struct Range {
        int floorTag = 0;
        int defaultFloor = 0;
        int defaultCeiling = 0;
        int floor = 0;
        int ceiling = 0;
    };

    // When something ends by itself; of one moment's ends the first that was arranged comes first.
    struct End {
        int64_t atMs = 0;
        uint64_t order = 0;
        bool operator<(const End& other) const {
            return atMs != other.atMs ? atMs < other.atMs : order < other.order;
        }
    };
    struct TimedLock {
        End end;
        int lock = 0;
    };
    struct EventLock {
        int cmdId = 0;
        int index = 0;
        int lock = 0;
    };

    static constexpr size_t kTags =
        42;  // the limits', and two more that clients' words are kept on

    TagState& Of(int tag) { return mTags[static_cast<size_t>(tag)]; }
    const TagState& Of(int tag) const { return mTags[static_cast<size_t>(tag)]; }
    Range* FindRange(int tag);

    LimitWord NewWord(int tag, int requester, int value, bool isUntimedGroup);
    bool WeighClient(int clientId, const std::vector<Asked>& asked, std::vector<Asked>& values);
    int WeighScene(int tag, const LimitWord& word) const;
    void RememberScene(int tag, const LimitWord& word, bool isEnd);
    void DeriveThermal();

    void ApplyAll(int requester, const std::vector<Asked>& values);
    void Apply(const Asked& asked);
    std::optional<int> ToRange(const Asked& asked);
    int ToFloor(Range& range, int value);
    std::optional<int> ToCeiling(Range& range, int value);
    void ApplyGroup(const std::vector<Asked>& values);
    void ApplyGroupCeiling(const Asked& asked);
    void SetControlType(int type);
    void WriteBack();
    void Write(int tag, int value);
    void SetLock(int tag, std::optional<int> value);
    void BreakThrough(const Element& element);
    void EndBreakthrough();
    int Take(std::vector<int> list, int durationMs);
    void Renew(int lock, std::vector<int> list, int durationMs);
    void DropLock(std::optional<int>& lock);
    bool WritesNodes() const { return mPerformance == 0 && !mBreakthrough; }
    void SummarizeTags(std::string& text) const;
    void SummarizeLocks(std::string& text) const;
    std::string RoleOf(int lock) const;

    const Layout mLayout;
    const LimitWeighing mWeigh;
    std::vector<Range> mRanges;
    std::array<TagState, kTags> mTags;
    LimitPhone mPhone;

    uint64_t mLastOrder = 0;
    int mPerformance = 1;  // 1: locks alone carry limits, no node is written
    int mThermalLevel = 0;
    bool mIsBoosting = true;  // false: commands and scenes neither begin nor end

    int64_t mNowMs = 0;
    std::optional<End> mBreakthrough;
    std::vector<TimedLock> mTimedLocks;
    std::vector<EventLock> mEventLocks;
    std::optional<int> mUntimedGroup;
    std::optional<int> mTimedGroup;
    std::optional<int> mUntimedElement;
};

}  // namespace lab

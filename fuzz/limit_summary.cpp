// What a rule's future depends on.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/ids.h"
#include "fuzz/limit_rule.h"

namespace lab {
namespace {

constexpr std::array<int, 8> kLimitTags = {0, 1, 3, 4, 6, 7, 9, 10};

}  // namespace

void LimitRule::SummarizeTags(std::string& text) const {
    const auto add = [&text](int64_t value) { text += std::to_string(value) + ','; };
    const auto addWord = [&](const LimitWord& word) {
        // Nothing is weighed against it, whoever said it; a scene that has ended is gone.
        const bool isGone = word.value == 0 && !tarquel::IsClient(word.requester);
        if (!word.isRemembered || isGone) return;
        add(word.requester);
        add(word.value);
    };
    for (size_t tag = 0; tag < mTags.size(); ++tag) {
        const TagState& state = mTags[tag];
        std::vector<LimitWord> words = state.words;
        std::stable_sort(words.begin(), words.end(), [](const LimitWord& a, const LimitWord& b) {
            return a.requester < b.requester;
        });
        for (const LimitWord& word : words) addWord(word);
        if (state.refused) text += '!', addWord(*state.refused);
        if (state.thermal) text += 't', add(*state.thermal);
        if (state.isSparedOnce) text += 's';
        text += ';';
    }
    for (const Range& range : mRanges) add(range.floor), add(range.ceiling);
    for (const int tag : kLimitTags) {
        if (!mPhone.Has(tag)) continue;
        const Kernel::LimitRequests requests = mPhone.Requests(tag);
        add(requests.program);
        if (requests.inPlace) text += 'p', add(*requests.inPlace);
        if (requests.hal) text += 'h', add(*requests.hal);
    }
}

std::string LimitRule::Summary() const {
    std::string text;
    text.reserve(400);
    SummarizeTags(text);
    text +=
        fmt::format("/{} {} {} {}/", mPerformance, mThermalLevel, mIsBoosting, BreakthroughMs());
    SummarizeLocks(text);
    return text;
}

// What may end or replace a lock: its tag, its group, its event; or time alone.
std::string LimitRule::RoleOf(int lock) const {
    for (const int tag : kLimitTags) {
        if (Of(tag).lock == lock) return fmt::format("{}", tag);
    }
    if (mUntimedGroup == lock) return "g";
    if (mTimedGroup == lock) return "G";
    if (mUntimedElement == lock) return "u";
    for (const EventLock& held : mEventLocks) {
        if (held.lock == lock) return fmt::format("e{}.{}", held.cmdId, held.index);
    }
    return "-";
}

void LimitRule::SummarizeLocks(std::string& text) const {
    const auto describe = [this](const LimitPhone::Lock& lock) {
        std::string about = RoleOf(lock.number) + ':';
        for (const int item : lock.list) about += std::to_string(item) + ' ';
        if (lock.untilMs) about += '+' + std::to_string(*lock.untilMs - mNowMs);
        return about + ';';
    };
    std::vector<std::string> untimed;
    for (const LimitPhone::Lock& lock : mPhone.Held()) {
        if (!lock.untilMs) untimed.push_back(describe(lock));
    }
    std::sort(untimed.begin(), untimed.end());
    for (const std::string& about : untimed) text += about;
    // In the order in which they end, and the breakthrough among them.
    std::vector<TimedLock> timed = mTimedLocks;
    std::sort(timed.begin(), timed.end(),
              [](const TimedLock& a, const TimedLock& b) { return a.end < b.end; });
    bool isTold = !mBreakthrough;
    for (const TimedLock& lock : timed) {
        if (!isTold && *mBreakthrough < lock.end) text += 'b', isTold = true;
        text += describe(*mPhone.Find(lock.lock));
    }
}

}  // namespace lab

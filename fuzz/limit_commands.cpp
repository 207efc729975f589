// Commands beside the limits, and time: locks for a while and breakthroughs.
#include <algorithm>
#include <utility>

#include "fuzz/limit_rule.h"

namespace lab {
namespace {

constexpr int64_t kLongestBreakthroughMs = 3000;
constexpr size_t kMostListInts = 64;

}  // namespace

void LimitRule::Run(const Element& element, Moment moment) {
    if (!mIsBoosting) return;
    const auto event =
        std::find_if(mEventLocks.begin(), mEventLocks.end(), [&element](const EventLock& held) {
            return held.cmdId == element.cmdId && held.index == element.index;
        });
    if (moment == Moment::kEnds) {
        if (event == mEventLocks.end()) return;
        std::optional<int> lock = event->lock;
        mEventLocks.erase(event);
        DropLock(lock);
        return;
    }
    if (moment == Moment::kOnce || !element.list.empty()) BreakThrough(element);
    if (element.list.empty()) return;
    std::vector<int> list = element.list;
    list.resize(std::min(list.size(), kMostListInts));
    if (moment == Moment::kBegins) {
        if (event == mEventLocks.end()) {
            const int lock = Take(std::move(list), element.durationMs);
            mEventLocks.push_back({element.cmdId, element.index, lock});
        } else if (mPhone.Find(event->lock)) {
            Renew(event->lock, std::move(list), element.durationMs);
        } else {
            event->lock = Take(std::move(list), element.durationMs);
        }
    } else if (element.durationMs < 1) {
        DropLock(mUntimedElement);
        mUntimedElement = Take(std::move(list), 0);
    } else {
        Take(std::move(list), element.durationMs);
    }
}

// Lifts the thermal limits for the element's time, three seconds at most, or for what is left of an
// earlier breakthrough if that is longer.
void LimitRule::BreakThrough(const Element& element) {
    const bool isAllowed = mThermalLevel >= 1 && element.boostLimitLevel >= mThermalLevel;
    if (!isAllowed || !element.mayBreakThrough) return;
    const int64_t ms = element.durationMs == 0 ? kLongestBreakthroughMs : element.durationMs;
    const int64_t end = mNowMs + std::min(ms, kLongestBreakthroughMs);
    if (!mBreakthrough || mBreakthrough->atMs < end) mBreakthrough = {end, ++mLastOrder};
}

int64_t LimitRule::BreakthroughMs() const {
    return mBreakthrough ? mBreakthrough->atMs - mNowMs : 0;
}

void LimitRule::EndBreakthrough() {
    mBreakthrough.reset();
    if (mPerformance != 0) return;
    DeriveThermal();
    WriteBack();
}

void LimitRule::Pass(int64_t ms) {
    const int64_t until = mNowMs + ms;
    while (true) {
        const auto lock =
            std::min_element(mTimedLocks.begin(), mTimedLocks.end(),
                             [](const TimedLock& a, const TimedLock& b) { return a.end < b.end; });
        const bool isBreakthrough =
            mBreakthrough && (lock == mTimedLocks.end() || *mBreakthrough < lock->end);
        if (!isBreakthrough && lock == mTimedLocks.end()) break;
        const int64_t at = isBreakthrough ? mBreakthrough->atMs : lock->end.atMs;
        if (at > until) break;
        mNowMs = at;
        if (isBreakthrough) {
            EndBreakthrough();
        } else {
            std::optional<int> ended = lock->lock;
            DropLock(ended);
        }
    }
    mNowMs = until;
}

int LimitRule::Take(std::vector<int> list, int durationMs) {
    std::optional<int64_t> until;
    if (durationMs > 0) until = mNowMs + durationMs;
    const int lock = mPhone.Take(std::move(list), until);
    if (until) mTimedLocks.push_back({{*until, ++mLastOrder}, lock});
    return lock;
}

void LimitRule::Renew(int lock, std::vector<int> list, int durationMs) {
    std::optional<int64_t> until;
    if (durationMs > 0) until = mNowMs + durationMs;
    mPhone.Renew(lock, std::move(list), until);
    std::erase_if(mTimedLocks, [lock](const TimedLock& timed) { return timed.lock == lock; });
    if (until) mTimedLocks.push_back({{*until, ++mLastOrder}, lock});
}

void LimitRule::DropLock(std::optional<int>& lock) {
    if (!lock) return;
    mPhone.Drop(*lock);
    std::erase_if(mTimedLocks, [&](const TimedLock& timed) { return timed.lock == *lock; });
    lock.reset();
}

}  // namespace lab

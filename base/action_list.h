// What an action's record claims to hold and what it holds; chains of records.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/log.h"
#include "tarquel/action.h"

namespace tarquel {

// The ints of the action's complete pairs: tagLen pairs, fewer when perfList is shorter.
inline size_t PairInts(const Action& action) {
    const int64_t claimed = std::max<int64_t>(action.tagLen, 0);
    const auto held = static_cast<int64_t>(action.perfList.size() / 2);
    return static_cast<size_t>(std::min(claimed, held)) * 2;
}

// Those pairs: opcode and value, or tag and value, in turn.
inline std::span<const int32_t> PerfPairs(const Action& action) {
    return {action.perfList.data(), PairInts(action)};
}
inline std::span<int32_t> PerfPairs(Action& action) {
    return {action.perfList.data(), PairInts(action)};
}

// True, with a log line, for an action whose list has fewer pairs than the action claims. One that
// claims a negative number of them has none.
inline bool IsCutShort(const Action& action) {
    if (action.tagLen <= 0 || PairInts(action) == static_cast<size_t>(action.tagLen) * 2) {
        return false;
    }
    TARQUEL_LOGE("tarquel: action list is invalid, cmdId is %d, tagLen is %d\n", action.cmdId,
                 action.tagLen);
    return true;
}

// True when the chain that begins with `first` leads back into itself: a walk with two paces meets.
template <typename Record>
bool IsEndless(const Record& first) {
    const Record* slow = &first;
    const Record* fast = &first;
    while (fast->next != nullptr && fast->next->next != nullptr) {
        slow = slow->next;
        fast = fast->next->next;
        if (slow == fast) return true;
    }
    return false;
}

// The same of actions, with a log line.
inline bool IsEndlessChain(const Action& first) {
    if (!IsEndless(first)) return false;
    TARQUEL_LOGE("tarquel: action chain is endless, cmdId is %d\n", first.cmdId);
    return true;
}

}  // namespace tarquel

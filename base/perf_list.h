// The opcode/value or tag/value pairs of an action, as far as its record really holds them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "tarquel/action.h"

namespace tarquel {

// The ints of the action's complete pairs: tagLen pairs, fewer when perfList is shorter.
inline size_t PairInts(const Action& action) {
    const int64_t claimed = std::max<int64_t>(action.tagLen, 0);
    const auto held = static_cast<int64_t>(action.perfList.size() / 2);
    return static_cast<size_t>(std::min(claimed, held)) * 2;
}

inline std::span<const int32_t> PerfPairs(const Action& action) {
    return {action.perfList.data(), PairInts(action)};
}

inline std::span<int32_t> PerfPairs(Action& action) {
    return {action.perfList.data(), PairInts(action)};
}

}  // namespace tarquel

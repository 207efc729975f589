// A small ordered map from int to int on the stack.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace tarquel {

// In ascending order of the keys; `Capacity` keys at most.
template <size_t Capacity>
class SortedPairs {
  public:
    struct Pair {
        int key;
        int value;
    };

    // The place of the key's value, and true when the key is new; its value is then 0.
    std::pair<int*, bool> Enter(int key) {
        // Counted rather than searched: keys come in any order, and a count takes no branches.
        Pair* const end = mPairs.data() + mCount;
        Pair* at = mPairs.data();
        for (const Pair* pair = at; pair != end; ++pair) at += pair->key < key ? 1 : 0;
        if (at != end && at->key == key) return {&at->value, false};
        std::move_backward(at, end, end + 1);
        ++mCount;
        *at = {key, 0};
        return {&at->value, true};
    }

    bool IsEmpty() const { return mCount == 0; }
    size_t Size() const { return mCount; }
    const Pair* begin() const { return mPairs.data(); }
    const Pair* end() const { return mPairs.data() + mCount; }

  private:
    // What is not entered is never read.
    std::array<Pair, Capacity> mPairs;
    size_t mCount = 0;
};

}  // namespace tarquel

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
        Pair* const begin = mPairs.data();
        Pair* const end = begin + mCount;
        // Keys are nearly always new: room is made on the way to the place.
        Pair* at = end;
        for (; at != begin && at[-1].key > key; --at) *at = at[-1];
        if (at != begin && at[-1].key == key) {
            std::copy(at + 1, end + 1, at);
            return {&at[-1].value, false};
        }
        ++mCount;
        *at = {key, 0};
        return {&at->value, true};
    }

    bool IsEmpty() const { return mCount == 0; }
    size_t Size() const { return mCount; }
    const Pair* begin() const { return mPairs.data(); }
    const Pair* end() const { return mPairs.data() + mCount; }

  private:
    // What is not entered is never read. One more than are kept, for the room that is made
    // before a duplicate is found.
    std::array<Pair, Capacity + 1> mPairs;
    size_t mCount = 0;
};

}  // namespace tarquel

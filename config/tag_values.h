// The pairs of one group request: a value for each tag, in ascending order of the tags.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "platform/client_ids.h"

namespace tarquel {

class TagValues {
  public:
    struct Pair {
        int tag;
        int value;
    };

    // Sets the value of `tag`; the last one counts. At most kMaxTags tags: as many as a request
    // has.
    void Set(int tag, int value) {
        Pair* const end = mPairs.data() + mCount;
        Pair* const at =
            std::lower_bound(mPairs.data(), end, tag,
                             [](const Pair& pair, int wanted) { return pair.tag < wanted; });
        if (at == end || at->tag != tag) {
            std::move_backward(at, end, end + 1);
            ++mCount;
        }
        *at = {tag, value};
    }

    bool IsEmpty() const { return mCount == 0; }
    size_t Size() const { return mCount; }
    const Pair* begin() const { return mPairs.data(); }
    const Pair* end() const { return mPairs.data() + mCount; }

  private:
    // On the stack of the request: what is not set is never read.
    std::array<Pair, kMaxTags> mPairs;
    size_t mCount = 0;
};

}  // namespace tarquel

// The paths under which one kernel tunable may be reached, in the order in which they are tried:
// one fixed path, the same file of every CPU of a cluster, or none.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "base/cpu_info.h"

namespace tarquel {

// Refers to constant texts and is copied freely; a path is put together where it is used.
class NodePaths {
  public:
    // Where a path is put together. Wider than any: a prefix and a CPU number stand before a suffix
    // of kSuffixMax characters at most.
    static constexpr size_t kSuffixMax = 32;
    using Buffer = std::array<char, 80>;

    // No path at all.
    constexpr NodePaths() = default;

    // One path, which ends with a null character and outlives the object.
    explicit constexpr NodePaths(std::string_view path) : mText(path), mIsFixed(true), mCount(1) {}

    // The path of `suffix` for every CPU of `cpus`, ascending; none when the first is above the
    // last, or when the range is wider than any device (with a log line).
    static NodePaths OfCluster(const CpuRange& cpus, std::string_view suffix);

    int Count() const { return mCount; }

    // The path of alternative `index`; lives as long as `buffer` and until its next use.
    const char* Path(int index, Buffer& buffer) const;

  private:
    std::string_view mText;  // the fixed path, or the suffix
    bool mIsFixed = false;
    int mCount = 0;
    int mFirstCpu = 0;
};

}  // namespace tarquel

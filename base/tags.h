// Tags: the numbers by which the policy server names tunables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarquel {

enum Tag : int {
    kTagLittleMin = 0,
    kTagLittleMax = 1,
    kTagMiddleMin = 3,
    kTagMiddleMax = 4,
    kTagLastMin = 6,
    kTagLastMax = 7,
    kTagGpuMin = 9,
    kTagGpuMax = 10,
    kTagRunAgain = 12,  // in a long-term scene: asks for the action to be run again
    kTagIpaSwitchTemp = 40,
    kTagIpaSustainablePower = 41,
    kTagGpuMinClock = 49,
    kTagGpuMaxClock = 50,
    kTagControlType = 57,
    kTagGroup = 98,  // first in a list: the list is one group
};

// The most tags of one request: far above the vocabulary, which ends at 133. A count beyond it is a
// caller's mistake.
inline constexpr int kMaxTags = 1024;

// A frequency's floor and ceiling, and whose they are. With three clusters the middle one is the
// big and the last one the prime cluster; with two there is no middle one and the last one is the
// big.
struct LimitTags {
    enum Domain { kLittle, kMiddle, kLast, kGpu } domain;
    int floor;
    int ceiling;
};

// Every frequency whose limits clients and scenes share; CPU clusters first. A row stands where its
// domain's number says.
// clang-format off
inline constexpr auto kLimitTags = std::to_array<LimitTags>({
    // domain             floor          ceiling
    {LimitTags::kLittle,  kTagLittleMin, kTagLittleMax},
    {LimitTags::kMiddle,  kTagMiddleMin, kTagMiddleMax},
    {LimitTags::kLast,    kTagLastMin,   kTagLastMax},
    {LimitTags::kGpu,     kTagGpuMin,    kTagGpuMax},
});
// clang-format on
inline constexpr size_t kCpuDomains = 3;

// The row whose floor or ceiling the tag is, or null.
constexpr const LimitTags* FindLimitTags(int tag) {
    constexpr auto kRowOfTag = [] {
        std::array<int8_t, kTagGpuMax + 1> rows{};
        rows.fill(-1);
        for (const LimitTags& row : kLimitTags) {
            rows[static_cast<size_t>(row.floor)] = static_cast<int8_t>(row.domain);
            rows[static_cast<size_t>(row.ceiling)] = static_cast<int8_t>(row.domain);
        }
        return rows;
    }();
    if (tag < 0 || tag > kTagGpuMax) return nullptr;
    const int8_t row = kRowOfTag[static_cast<size_t>(tag)];
    return row < 0 ? nullptr : &kLimitTags[static_cast<size_t>(row)];
}

constexpr bool IsFloorTag(int tag) {
    const LimitTags* row = FindLimitTags(tag);
    return row != nullptr && row->floor == tag;
}

constexpr bool IsCeilingTag(int tag) {
    const LimitTags* row = FindLimitTags(tag);
    return row != nullptr && row->ceiling == tag;
}

constexpr bool IsCpuCeilingTag(int tag) {
    return IsCeilingTag(tag) && tag != kTagGpuMax;
}

// Core control: refused while core isolation is off.
constexpr bool IsIsolationTag(int tag) {
    return tag >= 61 && tag <= 66;
}

}  // namespace tarquel

// The last limits of one requester on the six arbitrated tags.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>

#include "base/tags.h"

namespace tarquel {

// Tags that take part in client arbitration, in the order of the dump: the ceilings, then what the
// thermal driver's power allocator (IPA) is given.
inline constexpr auto kConfigSet =
    std::to_array<int>({kTagLittleMax, kTagMiddleMax, kTagLastMax, kTagGpuMax, kTagIpaSwitchTemp,
                        kTagIpaSustainablePower});

constexpr bool IsConfigTag(int tag) {
    return std::find(kConfigSet.begin(), kConfigSet.end(), tag) != kConfigSet.end();
}

inline constexpr int kUnset = -1;

// Writers hold the frequency manager's mutex; readers need not (the dump and the timer do not). In
// one order with the breakthrough flag: who stores a limit and then finds a breakthrough running is
// seen by that breakthrough's end.
class LimitTable {
  public:
    // 0 for a tag outside kConfigSet.
    int Get(int tag) const {
        const std::atomic<int>* value = Slot(*this, tag);
        return value == nullptr ? 0 : value->load();
    }

    // Ignores a tag outside kConfigSet.
    void Set(int tag, int value) {
        std::atomic<int>* slot = Slot(*this, tag);
        if (slot != nullptr) *slot = value;
    }

  private:
    template <typename Table>
    static auto Slot(Table& table, int tag) -> decltype(&table.mValues[0]) {
        const auto found = std::find(kConfigSet.begin(), kConfigSet.end(), tag);
        if (found == kConfigSet.end()) return nullptr;
        return &table.mValues[static_cast<size_t>(found - kConfigSet.begin())];
    }

    std::array<std::atomic<int>, kConfigSet.size()> mValues{kUnset, kUnset, kUnset,
                                                            kUnset, kUnset, kUnset};
};

}  // namespace tarquel

// Tag to perf-HAL opcode, on this device.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>

#include "base/cpu_info.h"

namespace tarquel {

class TagOpcodes {
  public:
    static constexpr int kLastTag = 133;      // the highest one that has an opcode
    static constexpr uint32_t kNoOpcode = 0;  // no resource of the HAL has it

    explicit TagOpcodes(const CpuClusters& clusters);

    // The opcode of a tag; none for a tag that cannot be set through the HAL.
    std::optional<uint32_t> Find(int tag) const;

    // The opcode of a tag; one that is not there is entered with opcode 0 and stays so.
    // Threads: callers hold the frequency manager's mutex.
    uint32_t Get(int tag);

  private:
    std::array<uint32_t, kLastTag + 1> mTagToOpcode{};
    std::set<int> mEntered;  // tags without an opcode that Get was asked for
};

}  // namespace tarquel

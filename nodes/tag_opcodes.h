// Tag to perf-HAL opcode, on this device.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "loader/cluster_layout.h"

namespace tarquel {

class TagOpcodes {
  public:
    // `busDcvsVariant` 1 selects the opcodes of the newer bus monitors.
    void InitTagToOpcode(const ClusterLayout& layout, int busDcvsVariant);

    // The opcode of a tag; none for a tag that cannot be set through the HAL.
    std::optional<uint32_t> Find(int tag) const;

    // The opcode of a tag; one that is not there is entered with opcode 0 and stays so.
    // Threads: callers hold the frequency manager's mutex.
    uint32_t Get(int tag) { return mTagToOpcode[tag]; }

  private:
    std::map<int, uint32_t> mTagToOpcode;
};

}  // namespace tarquel

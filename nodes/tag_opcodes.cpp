#include "nodes/tag_opcodes.h"

#include <algorithm>

#include "nodes/tag_opcode_table.h"

namespace tarquel {

static_assert(std::all_of(kTagOpcodes.begin(), kTagOpcodes.end(), [](const TagOpcode& row) {
    return row.tag >= 0 && row.tag <= TagOpcodes::kLastTag && row.opcode != TagOpcodes::kNoOpcode;
}));

TagOpcodes::TagOpcodes(const CpuClusters& clusters) {
    const auto counts = [&](TagOpcode::When when) {
        switch (when) {
            case TagOpcode::When::kTwoClusters:
                return !clusters.HasPrime();
            case TagOpcode::When::kThreeClusters:
                return clusters.HasPrime();
            default:  // every device has the newer bus monitors, too
                return true;
        }
    };
    for (const TagOpcode& row : kTagOpcodes) {
        if (counts(row.when)) mTagToOpcode[static_cast<size_t>(row.tag)] = row.opcode;
    }
}

std::optional<uint32_t> TagOpcodes::Find(int tag) const {
    const bool isInTable = tag >= 0 && static_cast<size_t>(tag) < mTagToOpcode.size();
    const uint32_t opcode = isInTable ? mTagToOpcode[static_cast<size_t>(tag)] : kNoOpcode;
    if (opcode != kNoOpcode || mEntered.count(tag) != 0) return opcode;
    return std::nullopt;
}

uint32_t TagOpcodes::Get(int tag) {
    const std::optional<uint32_t> opcode = Find(tag);
    if (!opcode) mEntered.insert(tag);
    return opcode.value_or(kNoOpcode);
}

}  // namespace tarquel

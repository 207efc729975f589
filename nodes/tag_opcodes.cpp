#include "nodes/tag_opcodes.h"

#include <algorithm>

#include "nodes/tag_opcode_table.h"

namespace tarquel {

static_assert(std::all_of(kTagOpcodes.begin(), kTagOpcodes.end(), [](const TagOpcode& row) {
    return row.tag >= 0 && row.tag <= TagOpcodes::kLastTag && row.opcode != TagOpcodes::kNoOpcode;
}));

void TagOpcodes::InitTagToOpcode(const ClusterLayout& layout, int busDcvsVariant) {
    using When = TagOpcode::When;
    const auto counts = [&](When when) {
        switch (when) {
            case When::kAlways:
                return true;
            case When::kBusVariant1:
                return busDcvsVariant == 1;
            case When::kTwoClusters:
                return !layout.HasPrimeCluster();
            case When::kThreeClusters:
                return layout.HasPrimeCluster();
        }
        return false;
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

#include "nodes/tag_opcodes.h"

#include "nodes/tag_opcode_table.h"

namespace tarquel {

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
        if (counts(row.when)) mTagToOpcode[row.tag] = row.opcode;
    }
}

std::optional<uint32_t> TagOpcodes::Find(int tag) const {
    const auto found = mTagToOpcode.find(tag);
    if (found == mTagToOpcode.end()) return std::nullopt;
    return found->second;
}

}  // namespace tarquel

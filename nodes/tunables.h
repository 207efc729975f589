// The device's tunables: which CPUs form its clusters, which node and which perf-HAL opcode stands
// for each tag, and the frequency limits. What the rooms above share.
#pragma once

#include "base/cpu_info.h"
#include "base/debug_switches.h"
#include "base/tags.h"
#include "nodes/freq_records.h"
#include "nodes/node_io.h"
#include "nodes/node_table.h"
#include "nodes/tag_opcodes.h"

namespace tarquel {

struct Tunables {
    Tunables(const CpuClusters& device, const DebugSwitches& switches)
        : clusters(device), io(switches), nodes(clusters), opcodes(clusters) {}

    // Reads the platform's own limits. Before any limit of ours is applied.
    void InitDefaultNodeValue();

    // Writes to the node of a tag. One that no table holds is entered with no path at all, which
    // makes the write nothing.
    void Write(int tag, int value) { io.WriteNode(nodes.Get(tag), value); }

    // The same, and true, if the table holds the tag.
    bool WriteIfHeld(int tag, int value) const;

    // False for the middle cluster of a device that has two.
    bool Has(const LimitTags& limit) const {
        return limit.domain != LimitTags::kMiddle || clusters.HasPrime();
    }

    // The limits of a frequency that the device has.
    CPUFREQ& RecordOf(LimitTags::Domain domain);

    const CpuClusters clusters;
    const NodeIo io;
    NodeTable nodes;
    TagOpcodes opcodes;
    FreqRecords records;
};

}  // namespace tarquel

// Writes the thermal ceilings, or the hardware maximum where there is none, straight into each
// cluster's scaling_max_freq.
#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "nodes/freq_records.h"
#include "nodes/node_io.h"
#include "nodes/node_table.h"

class QcomFreqManager;

namespace tarquel {

// The ceilings that a thermal policy also governs: little, middle and last cluster, GPU.
constexpr bool IsLimitTag(int tag) {
    return tag == 1 || tag == 4 || tag == 7 || tag == 10;
}

// Threads: the request thread and the timer's thread may both write back.
class ScalingWriteback {
  public:
    ScalingWriteback(const NodeIo& io, NodeTable& nodes, const FreqRecords& records,
                     const std::unique_ptr<QcomFreqManager>& freqManager)
        : mIo(io), mNodes(nodes), mRecords(records), mFreqManager(freqManager) {}

    // Clears every flag that MarkWritten set.
    void InitIsThermalSetConfig();

    // Says that the ceiling of `tag` was just written, so that the next write-back leaves it alone,
    // once. Tags without a write-back are ignored.
    void MarkWritten(int tag);

    // Writes every cluster's ceiling but those marked; clears all marks.
    void WriteAllScaling();

  private:
    struct Flag {
        int tag;
        std::atomic<bool> isWritten{false};
    };

    void WriteCeiling(const Flag& flag, int thermalKhz, int defaultKhz);

    const NodeIo& mIo;
    NodeTable& mNodes;
    const FreqRecords& mRecords;
    const std::unique_ptr<QcomFreqManager>& mFreqManager;
    std::array<Flag, 3> mIsThermalSetConfig{{{1}, {4}, {7}}};
};

}  // namespace tarquel

// The rules between a cluster's or the GPU's floor and ceiling.
#pragma once

#include "base/adapter_state.h"
#include "config/scaling_writeback.h"
#include "locks/perf_service.h"
#include "nodes/freq_records.h"
#include "nodes/node_io.h"
#include "nodes/node_table.h"

namespace tarquel {

// Threads: callers hold the frequency manager's mutex.
class FreqRules {
  public:
    FreqRules(const DebugSwitches& switches, const ControlState& control,
              const ClusterLayout& layout, FreqRecords& records, const NodeIo& io, NodeTable& nodes,
              ScalingWriteback& scaling, PerfService& perfService)
        : mSwitches(switches),
          mControl(control),
          mLayout(layout),
          mRecords(records),
          mIo(io),
          mNodes(nodes),
          mScaling(scaling),
          mPerfService(perfService) {}

    // Raises or lowers the floor: 0 restores the default, a value above the ceiling is cut to it.
    //   value    kHz (Hz for the GPU)
    //   Returns  the floor now in force
    int UpdateMinCpuFreq(int value, CPUFREQ& freq);

    // Sets the ceiling; the floor is pulled down with it when it would be above. A ceiling that
    // returns to its default is restored in its node at once.
    //   value    kHz (Hz for the GPU); 0 restores the default
    //   Returns  what to lock for tagMax; -1 when its lock must only be released
    int UpdateMaxCpuFreq(int value, CPUFREQ& freq, int tagMin, int tagMax);

    // The maximum rule on the record of a CPU ceiling tag. The middle cluster must be there.
    int UpdateCpuMax(int tag, int value);

    enum class Mark { kNone, kWritten };

    // Writes a value to the tag's node, unless the performance policy owns the limits or a
    // breakthrough runs; `mark` says whether the next write-back then leaves the ceiling alone. A
    // tag without a node is logged.
    void WriteUnlessOwned(int tag, int value, Mark mark);

    // The record of the middle and of the last cluster.
    CPUFREQ& Middle() { return mRecords.big; }
    CPUFREQ& Last() { return mLayout.HasPrimeCluster() ? mRecords.prime : mRecords.big; }

  private:
    const DebugSwitches& mSwitches;
    const ControlState& mControl;
    const ClusterLayout& mLayout;
    FreqRecords& mRecords;
    const NodeIo& mIo;
    NodeTable& mNodes;
    ScalingWriteback& mScaling;
    PerfService& mPerfService;
};

}  // namespace tarquel

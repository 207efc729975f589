// The control type (tag 57): who owns the limits and under which thermal level actions run.
#pragma once

#include "base/adapter_state.h"
#include "config/breakthrough_timer.h"
#include "config/scaling_writeback.h"
#include "nodes/freq_records.h"
#include "nodes/node_io.h"
#include "nodes/node_table.h"

namespace tarquel {

class ControlType {
  public:
    ControlType(const DebugSwitches& switches, ControlState& control, const ClusterLayout& layout,
                const FreqRecords& records, const NodeIo& io, NodeTable& nodes,
                ScalingWriteback& scaling, BreakthroughTimer& timer)
        : mSwitches(switches),
          mControl(control),
          mLayout(layout),
          mRecords(records),
          mIo(io),
          mNodes(nodes),
          mScaling(scaling),
          mTimer(timer) {}

    // Enters a control type; 1, 3 and whatever is not 0 to 10 change nothing. Every type is logged
    // and leaves a jank record. Always 0.
    int SetControlType(int type);

  private:
    void Enter(int perf, int thermal, int enableBoost);
    void ReleaseThermal(int enableBoost);
    void WriteDefaultCeilings();
    void WriteDefaultCeiling(int tag, const CPUFREQ& freq);

    const DebugSwitches& mSwitches;
    ControlState& mControl;
    const ClusterLayout& mLayout;
    const FreqRecords& mRecords;
    const NodeIo& mIo;
    NodeTable& mNodes;
    ScalingWriteback& mScaling;
    BreakthroughTimer& mTimer;
};

}  // namespace tarquel

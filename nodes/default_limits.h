// Reads the platform's own frequency limits, before any limit of ours is applied.
#pragma once

#include "base/cluster_layout.h"
#include "nodes/freq_records.h"
#include "nodes/node_io.h"

namespace tarquel {

// Reads the limits of the clusters and the GPU. What cannot be read stays as it is for a CPU
// cluster and becomes 0 for the GPU.
FreqRecords InitDefaultNodeValue(const ClusterLayout& layout, const NodeIo& io);

}  // namespace tarquel

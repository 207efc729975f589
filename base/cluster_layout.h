// The device's CPU clusters as the adapter found them when it was built.
#pragma once

#include <cstdint>

#include "base/cpu_info.h"

namespace tarquel {

// With three clusters the big one is the middle and the prime one the last; with two the big one is
// the last and there is no middle one.
struct ClusterLayout {
    explicit ClusterLayout(const CpuClusters& clusters)
        : cpus(clusters),
          mPrimeCluster(clusters.HasPrime() ? 1 : 0),
          clusterCount(clusters.HasPrime() ? 3 : 2),
          mIsolationSwitch(clusters.isolation) {}

    bool HasPrimeCluster() const { return mPrimeCluster >= 1; }
    const CpuRange& LastCluster() const { return HasPrimeCluster() ? cpus.prime : cpus.big; }

    const CpuClusters cpus;
    const int32_t mPrimeCluster;
    const int32_t clusterCount;
    const int32_t mIsolationSwitch;  // 0: core isolation is off
};

}  // namespace tarquel

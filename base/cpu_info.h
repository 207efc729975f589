// Which CPUs form each cluster, as the configuration says. Process-wide.
#pragma once

#include <cstdint>

#include "base/guarded.h"

// First and last CPU number of a cluster.
struct CpuRange {
    int32_t first = 0;
    int32_t last = 0;
};

// With three clusters the big one is the middle and the prime one the last; with two the big one is
// the last and there is no middle one.
struct CpuClusters {
    CpuRange prime;
    CpuRange big;
    CpuRange little;
    int32_t isolation = 0;  // 0: core isolation is off

    // A device has a prime cluster when neither of its ends is CPU 0.
    bool HasPrime() const { return prime.first != 0 && prime.last != 0; }
    const CpuRange& Last() const { return HasPrime() ? prime : big; }
    int Count() const { return HasPrime() ? 3 : 2; }
};

// All zero until the loader writes it; later elements overwrite earlier ones field by field.
class CpuInfo : public tarquel::Guarded<CpuClusters> {
  public:
    static CpuInfo& GetInstance();
};

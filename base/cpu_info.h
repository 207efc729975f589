// Which CPUs form each cluster, as the configuration says. Process-wide.
#pragma once

#include <cstdint>
#include <mutex>

#include "base/never_destroyed.h"

// First and last CPU number of a cluster.
struct CpuRange {
    int32_t first = 0;
    int32_t last = 0;
};

struct CpuClusters {
    CpuRange prime;
    CpuRange big;
    CpuRange little;
    int32_t isolation = 0;  // 0: core isolation is off

    // A device has a prime cluster when neither of its ends is CPU 0.
    bool HasPrime() const { return prime.first != 0 && prime.last != 0; }
};

// All zero until the loader writes it; later elements overwrite earlier ones field by field.
// Threads: any.
class CpuInfo {
  public:
    static CpuInfo& GetInstance();

    CpuClusters Get() const;

    void SetPrime(CpuRange cpus);
    void SetBig(CpuRange cpus);
    void SetLittle(CpuRange cpus);
    void SetIsolation(int32_t isolation);
    void Clear();

  private:
    friend class tarquel::NeverDestroyed<CpuInfo>;
    CpuInfo() = default;

    mutable std::mutex mMutex;
    CpuClusters mClusters;
};

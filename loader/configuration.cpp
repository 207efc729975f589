#include "loader/configuration.h"

#include <atomic>

#include "base/cpu_info.h"
#include "loader/boost_info.h"

namespace tarquel {

static std::atomic<bool> sIsOutdated{false};

void BeginNextConfigurationAfresh() {
    sIsOutdated = true;
}

void BeginConfiguration() {
    if (!sIsOutdated.exchange(false)) return;
    CpuInfo::GetInstance().Clear();
    FreqBoostInfo::GetInstance().Clear();
    BoostCountLimitInfo::GetInstance().Clear();
}

}  // namespace tarquel

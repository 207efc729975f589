#include "loader/configuration.h"

#include <atomic>

#include "loader/cpu_info.h"
#include "platform/boost_info.h"

namespace tarquel {

namespace {

std::atomic<bool> sIsOutdated{false};

}  // namespace

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

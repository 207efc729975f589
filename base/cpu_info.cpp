#include "base/cpu_info.h"

CpuInfo& CpuInfo::GetInstance() {
    static tarquel::NeverDestroyed<CpuInfo> instance;
    return instance.Get();
}

CpuClusters CpuInfo::Get() const {
    std::lock_guard lock(mMutex);
    return mClusters;
}

void CpuInfo::SetPrime(CpuRange cpus) {
    std::lock_guard lock(mMutex);
    mClusters.prime = cpus;
}

void CpuInfo::SetBig(CpuRange cpus) {
    std::lock_guard lock(mMutex);
    mClusters.big = cpus;
}

void CpuInfo::SetLittle(CpuRange cpus) {
    std::lock_guard lock(mMutex);
    mClusters.little = cpus;
}

void CpuInfo::SetIsolation(int32_t isolation) {
    std::lock_guard lock(mMutex);
    mClusters.isolation = isolation;
}

void CpuInfo::Clear() {
    std::lock_guard lock(mMutex);
    mClusters = {};
}

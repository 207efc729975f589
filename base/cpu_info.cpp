#include "base/cpu_info.h"

#include "base/never_destroyed.h"

CpuInfo& CpuInfo::GetInstance() {
    static tarquel::NeverDestroyed<CpuInfo> instance;
    return instance.Get();
}

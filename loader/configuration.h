// What configurations say about the whole process: CpuInfo, FreqBoostInfo, BoostCountLimitInfo.
#pragma once

namespace tarquel {

// Has the next configuration of a device begin with empty records: the platform that the last one
// was read for is gone. Until then they stay as they are, for a platform that is built again.
void BeginNextConfigurationAfresh();

// Called before a configuration that describes the device's clusters is read: empties the records
// if they are another platform's.
void BeginConfiguration();

}  // namespace tarquel

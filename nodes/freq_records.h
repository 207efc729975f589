// The frequency limits of each CPU cluster and the GPU: the platform's own, read at start, and
// those in force.
#pragma once

#include <cstdint>

// CPU frequencies in kHz, the GPU's in Hz.
struct CPUFREQ {
    int32_t mMaxFreq = 0;        // ceiling in force
    int32_t mMinFreq = 0;        // floor in force
    int32_t cpuinfoMaxFreq = 0;  // default ceiling: the hardware maximum
    int32_t defaultMinFreq = 0;  // default floor: scaling_min_freq as it was at start
};

namespace tarquel {

// The defaults are written while the adapter is built and constant afterwards; the limits in force
// change only while the frequency manager's mutex is held.
struct FreqRecords {
    CPUFREQ little;
    CPUFREQ big;    // the middle cluster of three, the last of two
    CPUFREQ prime;  // all zero with two clusters
    CPUFREQ gpu;
};

}  // namespace tarquel

// Request sequences over all slots and exported members, on a virtual clock. After each input all
// is let go, and nothing may be left: no lock that nobody asked for, no limit, no node. The device
// is chosen when the target is built (FUZZ_DEVICE).
#include "fuzz/finding.h"
#include "fuzz/station.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Never destroyed: the fuzzer looks into the library's memory when the program has ended.
    static auto* const station = new fuzz::Station(FUZZ_DEVICE);
    fuzz::BytesSource source(data, size);
    const std::string report = station->Play(source);
    if (!report.empty()) throw fuzz::Finding(report);
    return 0;
}

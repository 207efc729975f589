// Request sequences over all slots and exported members, on a virtual clock. After each input all
// is let go, and nothing may be left: no lock that nobody asked for, no limit, no node. The device
// is chosen when the target is built (FUZZ_DEVICE).
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "fuzz/finding.h"
#include "fuzz/station.h"

namespace {

// Never destroyed: the fuzzer looks into the library's memory when the program has ended.
fuzz::Station& TheStation() {
    static auto* const station = new fuzz::Station(FUZZ_DEVICE);
    return *station;
}

// Beside the fuzzer's own figures, which stand in the same form.
void PrintRequestCount() {
    std::fprintf(stderr, "stat::requests: %" PRIu64 "\n", TheStation().RequestCount());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return std::atexit(PrintRequestCount);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::BytesSource source(data, size);
    const std::string report = TheStation().Play(source);
    if (!report.empty()) throw fuzz::Finding(report);
    return 0;
}

// The perf HAL of the quiet phone: grants everything and does nothing but count.
#include <atomic>

extern "C" {

// Exact while one thread calls; cheaper than an exact count of several would be.
__attribute__((visibility("default"))) std::atomic<long> quiet_hal_calls{0};

__attribute__((visibility("default"))) int perf_lock_acq(int handle, int, int*, int) {
    quiet_hal_calls.store(quiet_hal_calls.load(std::memory_order_relaxed) + 1,
                          std::memory_order_relaxed);
    return handle > 0 ? handle : 1;
}

__attribute__((visibility("default"))) int perf_lock_rel(int) {
    quiet_hal_calls.store(quiet_hal_calls.load(std::memory_order_relaxed) + 1,
                          std::memory_order_relaxed);
    return 0;
}

}  // extern "C"

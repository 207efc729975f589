// The perf HAL of the quiet phone: grants everything and does nothing.
extern "C" {

__attribute__((visibility("default"))) int perf_lock_acq(int handle, int, int*, int) {
    return handle > 0 ? handle : 1;
}

__attribute__((visibility("default"))) int perf_lock_rel(int) {
    return 0;
}

}  // extern "C"

// libqti-perfd-client.so as the plug-in opens it: hands every call to the program, in which the
// phone and its perf HAL live. LAB_WITHOUT_... leaves an entry out, for a HAL that lacks it.

extern "C" {

// Defined by the program.
int LabPerfLockAcq(int handle, int durationMs, const int* list, int count);
int LabPerfLockRel(int handle);

#if !defined(LAB_WITHOUT_perf_lock_acq)
__attribute__((visibility("default"))) int perf_lock_acq(int handle, int durationMs, int* list,
                                                         int count) {
    return LabPerfLockAcq(handle, durationMs, list, count);
}
#endif

#if !defined(LAB_WITHOUT_perf_lock_rel)
__attribute__((visibility("default"))) int perf_lock_rel(int handle) {
    return LabPerfLockRel(handle);
}
#endif
}

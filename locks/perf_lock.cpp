#include "locks/perf_lock.h"

#include <dlfcn.h>

#include <cstring>
#include <mutex>

#include "base/log.h"
#include "base/trace.h"
#include "tarquel/properties.h"

namespace tarquel {

namespace {

using AcquireEntry = int (*)(int handle, int durationMs, int* list, int count);
using ReleaseEntry = int (*)(int handle);

// The library is the process's, not the adapter's.
constinit StaticMutex sMutex;  // guards what follows
void* sLibrary = nullptr;
AcquireEntry sAcquire = nullptr;
ReleaseEntry sRelease = nullptr;

// Null when the symbol is not there. On a null handle the process's own symbols are searched.
void* FindEntry(const char* name) {
    dlerror();
    void* entry = dlsym(sLibrary, name);
    return dlerror() == nullptr ? entry : nullptr;
}

}  // namespace

StaticMutex& PerfLockClient::Mutex() {
    return sMutex;
}

void PerfLockClient::InitPerfLock() {
    char library[kPropertyValueMax] = {};
    if (property_get("ro.vendor.extension_library", library, "") < 1) {
        TARQUEL_LOGE("tarquel: property_get() failed!\n");
        return;
    }
    if (std::strchr(library, '/') != nullptr) return;

    sLibrary = dlopen(library, RTLD_NOW);
    if (sLibrary == nullptr) {
        TARQUEL_LOGE("tarquel: dlopen() libqti-perfd-client.so failed!\n");
        return;
    }
    sAcquire = reinterpret_cast<AcquireEntry>(FindEntry("perf_lock_acq"));
    if (sAcquire == nullptr) {
        TARQUEL_LOGE("tarquel: dlsym() perf_lock_acq failed!\n");
        CleanUp();
    }
    // Looked for even when the library was just given up: a missing library misses both entries.
    sRelease = reinterpret_cast<ReleaseEntry>(FindEntry("perf_lock_rel"));
    if (sRelease == nullptr) {
        TARQUEL_LOGE("tarquel: dlsym() perf_lock_rel failed!\n");
        CleanUp();
    }
}

void PerfLockClient::CleanUp() {
    sAcquire = nullptr;
    sRelease = nullptr;
    if (sLibrary != nullptr) dlclose(sLibrary);
    sLibrary = nullptr;
}

int PerfLockClient::PerfLockAcq(int handle, int duration, int* list, int len) {
    std::lock_guard lock(sMutex);
    if (sAcquire == nullptr) InitPerfLock();
    int result = kNoLock;
    {
        TraceSection section(mSwitches);
        if (section.IsWanted() &&
            !TARQUEL_FORMAT(section.Name(), "PerfLockAcq reqHandle=%d", handle)) {
            TARQUEL_LOGE("tarQuel: PerfLockAcq snprintf_s trace_buf error\n");
        }
        section.Begin();
        if (sAcquire != nullptr) result = sAcquire(handle, duration, list, len);
    }
    // The handle that came back, as an empty section behind the call's own.
    if (TraceSection section(mSwitches); section.IsWanted()) {
        if (!TARQUEL_FORMAT(section.Name(), "PerfLockAcq retHandle=%d", result)) {
            TARQUEL_LOGE("tarQuel: PerfLockAcq snprintf_s trace_buf_ret error\n");
        }
        section.Begin();
    }
    return result;
}

void PerfLockClient::PerfLockRel(int handle) {
    std::lock_guard lock(sMutex);
    if (sRelease == nullptr) InitPerfLock();
    TraceSection section(mSwitches);
    if (section.IsWanted() && !TARQUEL_FORMAT(section.Name(), "PerfLockRel handle=%d", handle)) {
        TARQUEL_LOGE("tarQuel: PerfLockRel snprintf_s error\n");
    }
    section.Begin();
    if (sRelease != nullptr) sRelease(handle);
}

int PerfLockClient::CheckPerfLockHandle(int handle) {
    if (!IsHeldLock(handle)) return handle;
    PerfLockRel(handle);
    return kNoLock;
}

}  // namespace tarquel

#include "locks/perf_lock.h"

#include <dlfcn.h>

#include <cstring>
#include <mutex>

#include "base/log.h"
#include "tarquel/properties.h"
#include "tarquel/securec.h"

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

int PerfLockClient::CleanUp() {
    sAcquire = nullptr;
    sRelease = nullptr;
    if (sLibrary == nullptr) return 0;
    const int result = dlclose(sLibrary);
    sLibrary = nullptr;
    return result;
}

int PerfLockClient::PerfLockAcq(int handle, int duration, int* list, int len) {
    std::lock_guard lock(sMutex);
    if (sAcquire == nullptr) InitPerfLock();
    bool inSection = false;
    if (mTracer.IsOn()) {
        TextBuffer text{};
        if (snprintf_s(text.data(), text.size(), text.size() - 1, "PerfLockAcq reqHandle=%d",
                       handle) < 0) {
            TARQUEL_LOGE("tarQuel: PerfLockAcq snprintf_s trace_buf error\n");
        }
        inSection = mTracer.TarquelAtraceBegin(text.data(), std::strlen(text.data()));
    }
    const int result = sAcquire != nullptr ? sAcquire(handle, duration, list, len) : kNoLock;
    if (inSection) mTracer.TarquelAtraceEnd();
    TraceResult(result);
    return result;
}

// The handle that came back, as an empty section behind the call's own.
void PerfLockClient::TraceResult(int handle) const {
    if (!mTracer.IsOn()) return;
    TextBuffer text{};
    if (snprintf_s(text.data(), text.size(), text.size() - 1, "PerfLockAcq retHandle=%d", handle) <
        0) {
        TARQUEL_LOGE("tarQuel: PerfLockAcq snprintf_s trace_buf_ret error\n");
    }
    if (mTracer.TarquelAtraceBegin(text.data(), std::strlen(text.data()))) {
        mTracer.TarquelAtraceEnd();
    }
}

int PerfLockClient::PerfLockRel(int handle) {
    std::lock_guard lock(sMutex);
    if (sRelease == nullptr) InitPerfLock();
    bool inSection = false;
    if (mTracer.IsOn()) {
        TextBuffer text{};
        if (snprintf_s(text.data(), text.size(), text.size() - 1, "PerfLockRel handle=%d", handle) <
            0) {
            TARQUEL_LOGE("tarQuel: PerfLockRel snprintf_s error\n");
        }
        inSection = mTracer.TarquelAtraceBegin(text.data(), std::strlen(text.data()));
    }
    const int result = sRelease != nullptr ? sRelease(handle) : 0;
    if (inSection) mTracer.TarquelAtraceEnd();
    return result;
}

int PerfLockClient::CheckPerfLockHandle(int handle) {
    if (!IsHeldLock(handle)) return handle;
    PerfLockRel(handle);
    return kNoLock;
}

}  // namespace tarquel

// The library's entry points and the platform object.
#include <cstddef>
#include <mutex>
#include <new>

#include "adapter/qcom_perf_adapter.h"
#include "adapter/qcom_perf_plat.h"
#include "base/log.h"
#include "base/null_argument.h"
#include "base/static_mutex.h"
#include "loader/configuration.h"

namespace {

// Guards which platform object there is and which adapter it has; held while an adapter is built or
// destroyed.
constinit tarquel::StaticMutex sMutex;
QcomPerfPlat* sLive = nullptr;

// A new platform never takes the place of the last one, whose server's side may still be going.
alignas(QcomPerfPlat) std::byte sPlaces[2][sizeof(QcomPerfPlat)];
size_t sPlace = 0;

// Here and not on the heap: the timer's callback takes an address whose lower half is 0 for none,
// and a heap may begin at one.
alignas(QcomPerfAdapter) std::byte sAdapter[sizeof(QcomPerfAdapter)];

}  // namespace

extern "C" QcomPerfPlat* GetPlat() {
    return QcomPerfPlat::GetInstance();
}

extern "C" QcomFreqManager* GetFreqManager(QcomPerfAdapter& adapter) {
    if (tarquel::IsNullArgument(&adapter, "GetFreqManager")) return nullptr;
    return new QcomFreqManager(adapter, adapter.Switches());
}

QcomPerfPlat* QcomPerfPlat::GetInstance() {
    std::lock_guard lock(sMutex);
    if (sLive == nullptr) {
        sPlace = 1 - sPlace;
        sLive = ::new (sPlaces[sPlace]) QcomPerfPlat;
    }
    return sLive;
}

QcomPerfPlat::~QcomPerfPlat() {
    std::lock_guard lock(sMutex);
    mAdapter.reset();
    tarquel::BeginNextConfigurationAfresh();
    sLive = nullptr;
}

int QcomPerfPlat::Initialize() {
    std::lock_guard lock(sMutex);
    if (mAdapter != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "tarquel server",
                            "tarquel: server plat has been created, do not need initialize again");
        return 0;
    }
    mAdapter.reset(::new (sAdapter) QcomPerfAdapter);
    return 0;
}

PerfAdapter* QcomPerfPlat::GetAdapter() const {
    std::lock_guard lock(sMutex);
    return mAdapter.get();
}

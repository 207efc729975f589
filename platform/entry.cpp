// The library's entry points and the platform object.
#include <cstddef>
#include <mutex>
#include <new>

#include "platform/log.h"
#include "platform/qcom_perf_adapter.h"
#include "platform/qcom_perf_plat.h"

// Where the one platform object lives. It ends when the server destroys it or, at the latest, when
// the library is unloaded, so that no timer outlives the code that it calls.
class QcomPerfPlat::Holder {
  public:
    ~Holder() {
        if (mLive != nullptr) mLive->~QcomPerfPlat();
    }

    QcomPerfPlat* Get() {
        std::lock_guard lock(mMutex);
        if (mLive == nullptr) mLive = ::new (mStorage) QcomPerfPlat(*this);
        return mLive;
    }

    void Forget() {
        std::lock_guard lock(mMutex);
        mLive = nullptr;
    }

    // Guards which platform object there is, and which adapter it has.
    std::mutex& Mutex() { return mMutex; }

  private:
    std::mutex mMutex;
    alignas(QcomPerfPlat) std::byte mStorage[sizeof(QcomPerfPlat)];
    QcomPerfPlat* mLive = nullptr;
};

extern "C" QcomPerfPlat* GetPlat() {
    return QcomPerfPlat::GetInstance();
}

QcomPerfPlat* QcomPerfPlat::GetInstance() {
    static Holder holder;
    return holder.Get();
}

QcomPerfPlat::QcomPerfPlat(Holder& holder) : mHolder(holder) {}

QcomPerfPlat::~QcomPerfPlat() {
    mAdapter.reset();
    mHolder.Forget();
}

int QcomPerfPlat::Initialize() {
    std::lock_guard lock(mHolder.Mutex());
    if (mAdapter != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "tarquel server",
                            "tarquel: server plat has been created, do not need initialize again");
        return 0;
    }
    mAdapter = std::make_unique<QcomPerfAdapter>();
    return 0;
}

PerfAdapter* QcomPerfPlat::GetAdapter() const {
    std::lock_guard lock(mHolder.Mutex());
    return mAdapter.get();
}

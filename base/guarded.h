// A value that several threads share.
#pragma once

#include <mutex>

namespace tarquel {

// Threads: any. Nothing is called back but what is passed to With.
template <typename Value>
class Guarded {
  public:
    Value Get() const {
        std::lock_guard lock(mMutex);
        return mValue;
    }

    // Calls use(value) while nobody else sees the value; returns what it returns.
    template <typename Use>
    auto With(Use use) {
        std::lock_guard lock(mMutex);
        return use(mValue);
    }
    template <typename Use>
    auto With(Use use) const {
        std::lock_guard lock(mMutex);
        return use(mValue);
    }

    void Clear() {
        std::lock_guard lock(mMutex);
        mValue = {};
    }

  private:
    mutable std::mutex mMutex;
    Value mValue{};
};

}  // namespace tarquel

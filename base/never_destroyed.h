// Process-wide objects that exit() leaves alone.
#pragma once

#include <cstddef>
#include <new>

namespace tarquel {

// Holds the one object of its type: built with its holder, never destroyed, so that a thread that
// is still in a request while the process exits finds it whole.
template <typename T>
class NeverDestroyed {
  public:
    NeverDestroyed() { ::new (mStorage) T; }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& Get() { return *std::launder(reinterpret_cast<T*>(mStorage)); }

  private:
    alignas(T) std::byte mStorage[sizeof(T)];
};

}  // namespace tarquel

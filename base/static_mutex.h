// A mutex for what belongs to the process rather than to an object.
#pragma once

#include <pthread.h>

namespace tarquel {

// Needs neither construction nor destruction: it serves from the moment the library is mapped until
// the process is gone, also while exit() runs beside threads that are still in a request.
class StaticMutex {
  public:
    constexpr StaticMutex() = default;
    StaticMutex(const StaticMutex&) = delete;
    StaticMutex& operator=(const StaticMutex&) = delete;

    void lock() { pthread_mutex_lock(&mMutex); }
    void unlock() { pthread_mutex_unlock(&mMutex); }

  private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace tarquel

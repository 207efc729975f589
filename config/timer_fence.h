// Keeps a timer that fires late away from an adapter that is gone: deleting a POSIX timer does not
// wait for a callback that has begun, nor for one that is about to.
#pragma once

#include <pthread.h>

namespace tarquel {

// One fence for each owner of a timer. The list of the open ones lies in plain memory that needs no
// construction and no destruction, so that it serves while the library is being unloaded too.
class TimerFence {
  public:
    explicit TimerFence(void* owner) : mOwner(owner) {}
    ~TimerFence() { Close(); }

    TimerFence(const TimerFence&) = delete;
    TimerFence& operator=(const TimerFence&) = delete;

    // From Open to Close, Run lets callbacks through to the owner. Close waits for those that have
    // begun and does nothing when the fence is not open.
    void Open();
    void Close();

    // Calls job(owner) unless the fence of `owner` is closed; no lock is held meanwhile. The job
    // must not close its own fence. Threads: any.
    static void Run(void* owner, void (*job)(void* owner));

  private:
    static pthread_mutex_t sMutex;  // guards everything below
    static pthread_cond_t sJobEnded;
    static TimerFence* sFirst;

    void* const mOwner;
    TimerFence* mNext = nullptr;
    int mJobs = 0;  // that have begun and not ended
};

}  // namespace tarquel

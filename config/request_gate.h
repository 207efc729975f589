// Lets one thread at a time through, and runs what must not meet it in between, which waits for
// nobody.
#pragma once

#include <atomic>
#include <mutex>

namespace tarquel {

class RequestGate {
  public:
    struct Job {
        void (*run)(void* owner) noexcept;
        void* owner;
    };

    // Holds the gate as long as it lives; waits for those before it.
    class Turn {
      public:
        explicit Turn(RequestGate& gate) : mGate(gate) { mGate.mMutex.lock(); }
        ~Turn() {
            mGate.mMutex.unlock();
            mGate.RunPosted();
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

      private:
        RequestGate& mGate;
    };

    // Runs `job` with the gate held but never waits for it: at once when nobody holds it, else the
    // thread that does runs it as it leaves. Posted again before it ran, it runs once; another job
    // takes the place of one that has not run. `job` outlives the gate. Threads: any.
    void Post(const Job& job) {
        mPosted.exchange(&job);
        RunPosted();
    }

  private:
    // Whoever leaves the gate and whoever posts both look after they have made their own change, so
    // that one of them finds the gate free and a job there.
    void RunPosted() noexcept {
        while (HasPosted()) {
            if (!mMutex.try_lock()) return;
            if (const Job* job = mPosted.exchange(nullptr)) job->run(job->owner);
            mMutex.unlock();
        }
    }

    // Finding none is a write too: only then does one of two that look at the same time see the
    // other.
    bool HasPosted() noexcept {
        const Job* none = nullptr;
        return !mPosted.compare_exchange_strong(none, nullptr);
    }

    std::mutex mMutex;
    std::atomic<const Job*> mPosted{nullptr};
};

}  // namespace tarquel

#include "lab/phone/real_timers.h"

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

#include "lab/phone/events.h"
#include "lab/phone/phone.h"
#include "lab/phone/real_function.h"

namespace lab {

namespace {

// No one else's in the lab's programs; blocked in the one thread that waits for it.
int Signal() {
    return SIGRTMIN + 3;
}

struct Callback {
    void (*function)(sigval);
    sigval value;
};

// Never destroyed: a signal may come after everything else is gone.
class Dispatcher {
  public:
    Dispatcher() {
        std::thread worker([this] { Work(); });
        mHandle = worker.native_handle();
        worker.detach();
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mThread != 0; });
    }

    // The thread that is to get the signal.
    pid_t Thread() const { return mThread; }

    // Kept for good: the machine may deliver a signal after its timer was deleted.
    Callback* Keep(const sigevent& notification) {
        std::lock_guard<std::mutex> guard(mMutex);
        mCallbacks.push_back({notification.sigev_notify_function, notification.sigev_value});
        return &mCallbacks.back();
    }

    // Signals come in their order: behind a signal of its own, whatever was under way has begun.
    void WaitUntilIdle() {
        std::unique_lock<std::mutex> lock(mMutex);
        sigval nobody;
        nobody.sival_ptr = nullptr;  // all of it: braces alone fill the int, which is shorter
        if (pthread_sigqueue(mHandle, Signal(), nobody) == 0) ++mTurnsAsked;
        const int turn = mTurnsAsked;
        mChanged.wait(lock, [this, turn] { return mTurnsCome >= turn && mRunning == 0; });
    }

  private:
    void Work() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, Signal());
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        {
            std::lock_guard<std::mutex> guard(mMutex);
            mThread = gettid();
        }
        mChanged.notify_all();
        for (;;) {
            siginfo_t info{};
            if (sigwaitinfo(&signals, &info) < 0) continue;
            const auto* const callback = static_cast<Callback*>(info.si_value.sival_ptr);
            {
                std::lock_guard<std::mutex> guard(mMutex);
                ++(callback == nullptr ? mTurnsCome : mRunning);
            }
            if (callback == nullptr) {
                mChanged.notify_all();
                continue;
            }
            std::thread([this, callback] {
                if (Phone* const phone = Phone::Current()) {
                    phone->Events().Add(TimerEvent{TimerEvent::Kind::kFire, 0});
                }
                callback->function(callback->value);
                // Told with the mutex held: whoever waits may end the program at once.
                std::lock_guard<std::mutex> guard(mMutex);
                --mRunning;
                mChanged.notify_all();
            }).detach();
        }
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::list<Callback> mCallbacks;
    pthread_t mHandle{};
    pid_t mThread = 0;
    int mRunning = 0;
    int mTurnsAsked = 0;  // of WaitUntilIdle
    int mTurnsCome = 0;
};

std::atomic<Dispatcher*> gDispatcher{nullptr};

Dispatcher& TheDispatcher() {
    static auto* const dispatcher = new Dispatcher;
    gDispatcher = dispatcher;
    return *dispatcher;
}

}  // namespace

int CreateRealTimer(clockid_t clock, const sigevent& notification, timer_t* id) {
    static const auto real = RealFunction<int(clockid_t, sigevent*, timer_t*)>("timer_create");
    if (notification.sigev_notify_function == nullptr || id == nullptr) return Fail(EINVAL);
    sigevent signalling{};
    signalling.sigev_notify = SIGEV_THREAD_ID;
    signalling.sigev_signo = Signal();
    signalling.sigev_value.sival_ptr = TheDispatcher().Keep(notification);
    signalling._sigev_un._tid = TheDispatcher().Thread();
    return real(clock, &signalling, id);
}

void WaitForTimerCallbacks() {
    if (Dispatcher* const dispatcher = gDispatcher) dispatcher->WaitUntilIdle();
}

}  // namespace lab

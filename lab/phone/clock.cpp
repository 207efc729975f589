#include "lab/phone/clock.h"

#include <algorithm>
#include <thread>

namespace lab {

namespace {

class VirtualClock : public Clock {
  public:
    Time Now() const override {
        std::lock_guard<std::mutex> guard(mMutex);
        return mNow;
    }

    void AdvanceTo(Time when) override {
        std::unique_lock<std::mutex> lock(mMutex);
        while (!mAgenda.empty() && FirstDue() <= std::max(when, mNow)) {
            mNow = std::max(mNow, FirstDue());
            FireFirst(lock);
        }
        mNow = std::max(mNow, when);
    }

    std::optional<Time> NextDue() const override {
        std::lock_guard<std::mutex> guard(mMutex);
        return mAgenda.empty() ? std::nullopt : std::optional(FirstDue());
    }

    bool IsVirtual() const override { return true; }

  private:
    Time mNow{};
};

class RealClock : public Clock {
  public:
    ~RealClock() override { Stop(); }

    Time Now() const override { return std::chrono::steady_clock::now() - mStart; }

    void AdvanceTo(Time when) override { std::this_thread::sleep_until(mStart + when); }

    bool IsVirtual() const override { return false; }

    void Stop() override {
        {
            std::lock_guard<std::mutex> guard(mMutex);
            mAgenda.clear();
            mIsStopped = true;
            mChanged.notify_one();
        }
        if (mWorker.joinable()) mWorker.join();
    }

  private:
    void Work() {
        std::unique_lock<std::mutex> lock(mMutex);
        while (!mIsStopped) {
            if (mAgenda.empty()) {
                mChanged.wait(lock);
            } else if (FirstDue() > Now()) {
                mChanged.wait_until(lock, mStart + FirstDue());
            } else {
                FireFirst(lock);
            }
        }
    }

    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    bool mIsStopped = false;
    std::thread mWorker{[this] { Work(); }};  // last: it uses all the others
};

}  // namespace

Clock::Id Clock::Schedule(Time when, std::function<void()> fire) {
    std::lock_guard<std::mutex> guard(mMutex);
    const Id id(when, ++mScheduled);
    mAgenda.emplace(id, std::move(fire));
    mChanged.notify_one();
    return id;
}

bool Clock::Cancel(const Id& id) {
    std::lock_guard<std::mutex> guard(mMutex);
    return mAgenda.erase(id) > 0;
}

void Clock::Stop() {
    std::lock_guard<std::mutex> guard(mMutex);
    mAgenda.clear();
}

void Clock::FireFirst(std::unique_lock<std::mutex>& lock) {
    const std::function<void()> fire = std::move(mAgenda.begin()->second);
    mAgenda.erase(mAgenda.begin());
    lock.unlock();
    fire();
    lock.lock();
}

std::unique_ptr<Clock> MakeVirtualClock() {
    return std::make_unique<VirtualClock>();
}

std::unique_ptr<Clock> MakeRealClock() {
    return std::make_unique<RealClock>();
}

}  // namespace lab

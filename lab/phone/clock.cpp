#include "lab/phone/clock.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace lab {

namespace {

// What waits to be run: ordered by time, then by the order in which it was scheduled. Not guarded.
class Agenda {
  public:
    Clock::Id Add(Time when, std::function<void()> fire) {
        const Clock::Id id = ++mLastId;
        mEntries.emplace(std::pair(when, id), std::move(fire));
        mTimes.emplace(id, when);
        return id;
    }

    bool Remove(Clock::Id id) {
        const auto time = mTimes.find(id);
        if (time == mTimes.end()) return false;
        mEntries.erase({time->second, id});
        mTimes.erase(time);
        return true;
    }

    // When the first entry falls due, or none.
    std::optional<Time> NextTime() const {
        if (mEntries.empty()) return std::nullopt;
        return mEntries.begin()->first.first;
    }

    // Removes and returns the first entry; there must be one.
    std::function<void()> TakeFirst() {
        const auto first = mEntries.begin();
        std::function<void()> fire = std::move(first->second);
        mTimes.erase(first->first.second);
        mEntries.erase(first);
        return fire;
    }

    void Clear() {
        mEntries.clear();
        mTimes.clear();
    }

  private:
    std::map<std::pair<Time, Clock::Id>, std::function<void()>> mEntries;
    std::map<Clock::Id, Time> mTimes;
    Clock::Id mLastId = 0;
};

class VirtualClock : public Clock {
  public:
    Time Now() const override {
        std::lock_guard<std::mutex> guard(mMutex);
        return mNow;
    }

    Id Schedule(Time when, std::function<void()> fire) override {
        std::lock_guard<std::mutex> guard(mMutex);
        return mAgenda.Add(when, std::move(fire));
    }

    bool Cancel(Id id) override {
        std::lock_guard<std::mutex> guard(mMutex);
        return mAgenda.Remove(id);
    }

    void AdvanceTo(Time when) override {
        std::unique_lock<std::mutex> lock(mMutex);
        for (auto next = mAgenda.NextTime(); next && *next <= std::max(when, mNow);
             next = mAgenda.NextTime()) {
            const std::function<void()> fire = mAgenda.TakeFirst();
            mNow = std::max(mNow, *next);
            lock.unlock();
            fire();
            lock.lock();
        }
        mNow = std::max(mNow, when);
    }

    std::optional<Time> NextDue() const override {
        std::lock_guard<std::mutex> guard(mMutex);
        return mAgenda.NextTime();
    }

    bool IsVirtual() const override { return true; }

    void Stop() override {
        std::lock_guard<std::mutex> guard(mMutex);
        mAgenda.Clear();
    }

  private:
    mutable std::mutex mMutex;
    Time mNow{};
    Agenda mAgenda;
};

class RealClock : public Clock {
  public:
    ~RealClock() override { Stop(); }

    Time Now() const override { return std::chrono::steady_clock::now() - mStart; }

    Id Schedule(Time when, std::function<void()> fire) override {
        std::lock_guard<std::mutex> guard(mMutex);
        const Id id = mAgenda.Add(when, std::move(fire));
        mChanged.notify_one();
        return id;
    }

    bool Cancel(Id id) override {
        std::lock_guard<std::mutex> guard(mMutex);
        return mAgenda.Remove(id);
    }

    void AdvanceTo(Time when) override { std::this_thread::sleep_until(mStart + when); }

    bool IsVirtual() const override { return false; }

    void Stop() override {
        {
            std::lock_guard<std::mutex> guard(mMutex);
            mAgenda.Clear();
            mIsStopped = true;
            mChanged.notify_one();
        }
        if (mWorker.joinable()) mWorker.join();
    }

  private:
    void Work() {
        std::unique_lock<std::mutex> lock(mMutex);
        while (!mIsStopped) {
            const std::optional<Time> next = mAgenda.NextTime();
            if (!next) {
                mChanged.wait(lock);
            } else if (*next > Now()) {
                mChanged.wait_until(lock, mStart + *next);
            } else {
                const std::function<void()> fire = mAgenda.TakeFirst();
                lock.unlock();
                fire();
                lock.lock();
            }
        }
    }

    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::mutex mMutex;
    std::condition_variable mChanged;
    Agenda mAgenda;
    bool mIsStopped = false;
    std::thread mWorker{[this] { Work(); }};  // last: it uses all the others
};

}  // namespace

std::unique_ptr<Clock> MakeVirtualClock() {
    return std::make_unique<VirtualClock>();
}

std::unique_ptr<Clock> MakeRealClock() {
    return std::make_unique<RealClock>();
}

}  // namespace lab

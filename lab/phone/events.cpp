#include "lab/phone/events.h"

namespace lab {

void Recorder::Add(What what) {
    std::lock_guard<std::mutex> guard(mMutex);
    mEvents.push_back({mClock.Now(), std::move(what)});
}

void Recorder::Clear() {
    std::lock_guard<std::mutex> guard(mMutex);
    mEvents.clear();
}

}  // namespace lab

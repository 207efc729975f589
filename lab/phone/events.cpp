#include "lab/phone/events.h"

namespace lab {

char PriorityLetter(int priority) {
    constexpr const char* kLetters = "??VDIWEF";
    return priority >= 2 && priority <= 7 ? kLetters[priority] : '?';
}

void Recorder::Add(What what) {
    std::lock_guard<std::mutex> guard(mMutex);
    mEvents.push_back({mClock.Now(), std::move(what)});
}

void Recorder::Explain(std::shared_ptr<const RequestFacts> facts) {
    std::lock_guard<std::mutex> guard(mMutex);
    for (auto event = mEvents.rbegin(); event != mEvents.rend(); ++event) {
        auto* begin = std::get_if<RequestBegin>(&event->what);
        if (begin == nullptr) continue;
        begin->facts = std::move(facts);
        return;
    }
}

void Recorder::Clear() {
    std::lock_guard<std::mutex> guard(mMutex);
    mEvents.clear();
}

}  // namespace lab

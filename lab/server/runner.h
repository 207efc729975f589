// Plays a scenario: lets time pass, makes its requests, and hands what happens to those who watch.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "lab/book/book.h"
#include "lab/phone/phone.h"
#include "lab/server/expectations.h"
#include "lab/server/scenario.h"
#include "lab/server/server.h"

namespace lab {

class Runner {
  public:
    // `observe` gets every event once, in order, after the book. On the virtual clock events are
    // handed on after every step and forgotten, so that a run may last for days; on the real one at
    // the end. While time passes they are handed on after everything that falls due, so that
    // whoever watches finds the nodes as the event leaves them.
    Runner(const RunParts& run, std::function<void(const Event&)> observe)
        : mRun(run), mObserve(std::move(observe)) {}

    // Gives the phone the scenario's properties and starts the plug-in. Throws InputError when it
    // cannot use the scene file.
    void Start(const ScenarioHead& head);

    void Play(const std::vector<Step>& steps);

    // As Play, but only until `end`, counted from the scenario's start: what happens at that moment
    // is the last. Time passes until then where the steps are over before.
    void PlayUntil(const std::vector<Step>& steps, Time end);

    // When the last step was due that was come to, counted from the scenario's start.
    Time PlayedTo() const { return mCursor - mOrigin; }

    // Hands on what is left.
    void Finish();

  private:
    void PlayList(const std::vector<Step>& steps);
    void PlayStep(const Step& step);
    void Make(const Step& step);
    void Begin(RequestBegin begin);
    void AddFinding(const std::string& text);
    RequestBegin BeginningOf(const Step& step) const;
    void End(RequestFacts facts, const std::string& result);
    void AdvanceTo(Time at);
    void HandOn();

    // One request of the server, or one arrangement of the phone.
    template <typename Asked>
    Server::Outcome Perform(const Asked& asked);
    Server::Outcome Perform(const Expect& asked);
    Server::Outcome Refuse(int cmdId);

    const RunParts mRun;
    std::function<void(const Event&)> mObserve;
    std::string mFile;          // of the scenario
    size_t mRequests = 0;       // begun
    int mLastResult = 0;        // of the last request that was no expectation
    bool mKeepsLog = true;      // for the steps to come
    std::vector<LogLine> mLog;  // since something of it was expected
    Time mCursor{};
    Time mOrigin{};
    std::optional<Time> mEnd;  // nothing happens after it
};

}  // namespace lab

#include "fuzz/station.h"

#include <fmt/format.h>

#include "fuzz/finding.h"

namespace fuzz {
namespace {

constexpr int kAndroidError = 6;
constexpr size_t kMostDeeds = 50;

// Longer than anything that is held for a time.
constexpr int64_t kAllRunsOutMs = 120'000;

lab::Time Ms(int64_t ms) {
    return std::chrono::milliseconds(ms);
}

}  // namespace

Station::Station(const std::string& device)
    : mDesk(device, lab::Phone::Options()),
      mMaker(mDesk.Device(), mDesk.Scenes(), RequestMaker::Options()),
      mCalls(mDesk.Device()),
      mAtBoot(mDesk.Device(), mDesk.Scenes(), mDesk.GetPhone().GetKernel()) {
    for (const std::string& path : mDesk.GetPhone().GetKernel().Paths()) {
        mBootStates[path] = StateOf(path);
    }
}

std::string Station::Play(Source& source) {
    Begin();
    while (!source.IsEmpty() && mDeeds.size() < kMostDeeds) Make(mMaker.Draw(source));
    return End();
}

std::string Station::Play(const std::vector<Deed>& deeds) {
    Begin();
    for (const Deed& deed : deeds) Make(deed);
    return End();
}

void Station::Begin() {
    mBook = std::make_unique<lab::Book>(mAtBoot);
    mCalls.Begin();
    mDeeds.clear();
    mFindings.clear();
    mDesk.Restart();
    mDesk.GetPhone().Events().Clear();
}

void Station::Make(const Deed& deed) {
    Pass(deed.afterMs);
    mDeeds.push_back(deed);
    lab::Recorder& events = mDesk.GetPhone().Events();
    events.Add(lab::RequestBegin{"", 0});
    lab::Server::Outcome outcome;
    try {
        outcome = mDesk.Perform(deed);
    } catch (const Finding& finding) {
        mFindings.push_back(fmt::format("request {}: {}", mDeeds.size(), finding.what()));
    }
    outcome.facts.text = fmt::format("request {}", mDeeds.size());
    events.Explain(std::make_shared<const lab::RequestFacts>(std::move(outcome.facts)));
    events.Add(lab::RequestEnd{""});
    if (const auto* request = std::get_if<lab::Request>(&deed.what)) {
        if (const auto* fate = std::get_if<lab::SetOnDemand>(request)) {
            for (const auto& [cmdId, ms] : fate->msOfCommand) mOnDemand.insert(cmdId);
        }
    }
    mMisuse = std::get_if<Misuse>(&deed.what);
    HandOn();
    mMisuse = nullptr;
}

void Station::Pass(int64_t ms) {
    if (ms == 0) return;
    lab::Clock& clock = mDesk.GetPhone().GetClock();
    clock.AdvanceTo(clock.Now() + Ms(ms));
    HandOn();
}

void Station::HandOn() {
    lab::Recorder& events = mDesk.GetPhone().Events();
    bool isLogged = mMisuse == nullptr || !mMisuse->IsLogged();
    for (const lab::Event& event : events.Events()) {
        mBook->Observe(event);
        mCalls.Observe(event);
        const auto* const access = std::get_if<lab::NodeAccess>(&event.what);
        const bool isWrite = access != nullptr && access->kind == lab::NodeAccess::Kind::kWrite;
        if (isWrite) mWritten.insert(access->path);
        if (mMisuse == nullptr) continue;
        const auto* const line = std::get_if<lab::LogLine>(&event.what);
        if (line != nullptr && line->priority >= kAndroidError) isLogged = true;
        if (isWrite || std::holds_alternative<lab::LockAcquire>(event.what) ||
            std::holds_alternative<lab::LockRelease>(event.what)) {
            mFindings.push_back(fmt::format(
                "request {} changed something, though it must be refused", mDeeds.size()));
        }
    }
    events.Clear();
    if (isLogged) return;
    mFindings.push_back(fmt::format("request {} was refused without a word", mDeeds.size()));
}

std::string Station::End() {
    const size_t drawn = mDeeds.size();
    mRequestCount += drawn;
    mDesk.Mend();
    Pass(kAllRunsOutMs);
    for (const Deed& deed : mDesk.Endings()) Make(deed);
    Pass(kAllRunsOutMs);
    for (const int handle : std::set<int>(mCalls.Lost())) mDesk.GetPhone().Hal().Release(handle);
    HandOn();

    std::vector<std::string> findings = mFindings;
    const auto add = [&findings](const std::vector<std::string>& more) {
        findings.insert(findings.end(), more.begin(), more.end());
    };
    add(mCalls.Findings());
    for (lab::RunFinding& found : mBook->Findings()) findings.push_back(std::move(found.text));
    for (const lab::PerfHal::Lock& lock : mDesk.GetPhone().Hal().Held()) {
        if (mBook->FindLock(lock.handle) != nullptr) continue;
        findings.push_back(fmt::format("lock {} is held, which no event told of", lock.handle));
    }
    add(mDesk.Leftovers());
    std::string report;
    if (!findings.empty()) {
        for (size_t i = 0; i < mDeeds.size(); ++i) {
            report += fmt::format("{:4} {}{}\n", i + 1, i < drawn ? "" : "(let go) ",
                                  Describe(mDeeds[i]));
        }
        for (const std::string& finding : findings) report += "  ! " + finding + "\n";
    }
    Reset();
    return report;
}

// What a program asked for on the node, or its value where requests are not kept apart.
std::string Station::StateOf(const std::string& path) {
    const lab::Kernel& kernel = mDesk.GetPhone().GetKernel();
    const auto requests = kernel.RequestsOn(path);
    return requests ? std::to_string(requests->program) : kernel.Value(path);
}

// Gives the next sequence the phone as it was after boot.
void Station::Reset() {
    lab::Phone& phone = mDesk.GetPhone();
    for (const lab::PerfHal::Lock& lock : phone.Hal().Held()) phone.Hal().Release(lock.handle);
    for (const std::string& path : mWritten) {
        const auto boot = mBootStates.find(path);
        if (boot == mBootStates.end() || !phone.GetKernel().Has(path)) continue;
        if (StateOf(path) != boot->second) phone.GetKernel().Force(path, boot->second);
    }
    mWritten.clear();
    for (const int cmdId : mOnDemand) phone.SetOnDemandDuration(cmdId, 0);
    mOnDemand.clear();
    phone.Events().Clear();
}

}  // namespace fuzz

#include "lab/server/expectations.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

constexpr size_t kMostShown = 3;
constexpr char kNotOnRealClock[] = "nothing that can be told with --realtime";

std::string LineText(const LogLine& line) {
    return fmt::format("{} {}", PriorityLetter(line.priority), WithoutNewline(line.text));
}

std::string LogText(const ExpectedLog& expected) {
    std::string text = "log line";
    if (expected.priority) text += fmt::format(" {}", PriorityLetter(*expected.priority));
    if (expected.text) text += " '" + *expected.text + "'";
    if (expected.part) text += " '..." + *expected.part + "...'";
    return text;
}

// The value of `opcode` in a lock's list, nothing when it is not in it.
std::optional<int> ValueIn(const PerfHal::Lock& lock, int opcode) {
    for (size_t i = 0; i + 1 < lock.list.size(); i += 2) {
        if (lock.list[i] == opcode) return lock.list[i + 1];
    }
    return std::nullopt;
}

}  // namespace

void Expectations::KeepLog(bool isKept) {
    mKeepsLog = isKept;
    if (!isKept) mLog.clear();
}

void Expectations::Observe(const Event& event) {
    const auto* line = std::get_if<LogLine>(&event.what);
    if (line && mKeepsLog) mLog.push_back(*line);
}

std::vector<FailedExpectation> Expectations::Compare(const Expect& expected, int lastResult) {
    mFailed.clear();
    for (const ExpectedNumber& number : expected.numbers) CompareNumber(number, lastResult);
    const Kernel& kernel = mPhone.GetKernel();
    for (const ExpectedNode& node : expected.nodes) {
        const std::string found = kernel.Has(node.path) ? kernel.Value(node.path) : "no such node";
        if (found != node.value) Fail(node.line, node.path, node.value, found);
    }
    for (const ExpectedTag& tag : expected.tags) CompareTag(tag);
    for (const ExpectedLock& lock : expected.locks) CompareLock(lock);
    for (const ExpectedLog& log : expected.log) CompareLog(log);
    if (!expected.log.empty()) mLog.clear();
    return std::move(mFailed);
}

void Expectations::Fail(int line, const std::string& what, const std::string& wanted,
                        const std::string& found) {
    mFailed.push_back({line, fmt::format("{}: expected {}, found {}", what, wanted, found)});
}

void Expectations::CompareNumber(const ExpectedNumber& expected, int lastResult) {
    using Number = ExpectedNumber::What;
    std::string what;
    int found = 0;
    switch (expected.what) {
        case Number::kLocks:
            what = "locks held";
            found = static_cast<int>(mPhone.Hal().Held().size());
            break;
        case Number::kResult:
            what = "the result before";
            found = lastResult;
            break;
        case Number::kPerformance:
            what = "performance";
            found = mServer.Status()["mPB_Prior"];
            break;
        case Number::kThermal:
            what = "thermal level";
            found = mServer.Status()["mTB_Prior"];
            break;
    }
    if (found == expected.value) return;
    Fail(expected.line, what, std::to_string(expected.value), std::to_string(found));
}

void Expectations::CompareTag(const ExpectedTag& expected) {
    const Kernel& kernel = mPhone.GetKernel();
    std::string found = "no node";
    for (const std::string& path : TagNodes(expected.pair.tag, mDevice)) {
        if (!kernel.Has(path)) continue;
        found = kernel.Value(path);
        break;
    }
    const std::string wanted = std::to_string(expected.pair.value);
    if (found != wanted) Fail(expected.line, TagLabel(expected.pair.tag, mLayout), wanted, found);
}

bool Expectations::Fits(const PerfHal::Lock& lock, const ExpectedLock& expected) const {
    if (expected.opcode) {
        const std::optional<int> value = ValueIn(lock, *expected.opcode);
        if (!value || (expected.value && value != expected.value)) return false;
    }
    if (!expected.cmdId && !expected.clientId) return true;
    const BookedLock* booked = mBook.FindLock(lock.handle);
    const RequestFacts* owner = booked && booked->askedBy ? booked->askedBy->facts.get() : nullptr;
    return owner && owner->cmdId == expected.cmdId && owner->clientId == expected.clientId;
}

// The locks that come closest: those on the resource, else all of them.
std::string Expectations::HeldText(const ExpectedLock& expected) const {
    std::vector<std::string> held;
    for (const PerfHal::Lock& lock : mPhone.Hal().Held()) {
        std::string text = fmt::format("lock {}", lock.handle);
        if (expected.opcode) {
            const std::optional<int> value = ValueIn(lock, *expected.opcode);
            if (!value) continue;
            text += fmt::format(" on {} = {}", ResourceOf(*expected.opcode, mLayout).name, *value);
        }
        const BookedLock* booked = mBook.FindLock(lock.handle);
        if (booked && booked->askedBy) {
            const BookedRequest& owner = *booked->askedBy;
            text += fmt::format(" by \"{}\"{}", owner.text, AtLine(owner.line));
        }
        held.push_back(text);
    }
    if (held.empty()) return expected.opcode ? "no lock on it" : "no lock";
    if (held.size() > kMostShown) {
        const std::string others = fmt::format("{} more", held.size() - kMostShown);
        held.resize(kMostShown);
        held.push_back(others);
    }
    return Join(held);
}

void Expectations::CompareLock(const ExpectedLock& expected) {
    const std::string wanted = expected.isHeld ? "to be held" : "not to be held";
    const bool needsOwner = expected.cmdId || expected.clientId;
    if (needsOwner && !mPhone.GetClock().IsVirtual()) {
        Fail(expected.line, expected.text, wanted, kNotOnRealClock);
        return;
    }
    const std::vector<PerfHal::Lock> held = mPhone.Hal().Held();
    const bool isHeld = std::any_of(
        held.begin(), held.end(), [&](const PerfHal::Lock& lock) { return Fits(lock, expected); });
    if (isHeld != expected.isHeld) {
        Fail(expected.line, expected.text, wanted, HeldText(expected));
    }
}

void Expectations::CompareLog(const ExpectedLog& expected) {
    const std::string what = LogText(expected);
    const std::string wanted = expected.isLogged ? "one" : "none";
    if (!mPhone.GetClock().IsVirtual()) {
        Fail(expected.line, what, wanted, kNotOnRealClock);
        return;
    }
    const auto fits = [&expected](const LogLine& line) {
        if (expected.priority && line.priority != *expected.priority) return false;
        const std::string text = WithoutNewline(line.text);
        if (expected.text && text != *expected.text) return false;
        return !expected.part || text.find(*expected.part) != std::string::npos;
    };
    const auto found = std::find_if(mLog.begin(), mLog.end(), fits);
    if ((found != mLog.end()) == expected.isLogged) return;
    if (!expected.isLogged) {
        Fail(expected.line, what, wanted, LineText(*found));
        return;
    }
    std::vector<std::string> last;
    for (size_t i = mLog.size() - std::min(mLog.size(), kMostShown); i < mLog.size(); ++i) {
        last.push_back("'" + LineText(mLog[i]) + "'");
    }
    Fail(expected.line, what, wanted,
         last.empty() ? "no line at all"
                      : fmt::format("none among {}, the last: {}", mLog.size(), Join(last)));
}

bool ExpectsLog(const std::vector<Step>& steps) {
    return std::any_of(steps.begin(), steps.end(), [](const Step& step) {
        if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
            return ExpectsLog(repeat->steps);
        }
        const auto* expect = std::get_if<Expect>(&step.request);
        return expect && !expect->log.empty();
    });
}

}  // namespace lab

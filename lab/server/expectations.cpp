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

// Compares one expectation after the other.
class Comparison {
  public:
    Comparison(const RunParts& run, const std::vector<LogLine>& log, int lastResult)
        : mRun(run), mLayout(run.scenes.ClusterLayout()), mLog(log), mLastResult(lastResult) {}

    std::vector<FailedExpectation> Compare(const Expect& expect) {
        for (const Expected& expected : expect) {
            mLine = expected.line;
            std::visit([this](const auto& what) { Compare(what); }, expected.what);
        }
        return std::move(mFailed);
    }

  private:
    void Fail(const std::string& what, const std::string& wanted, const std::string& found) {
        mFailed.push_back({mLine, fmt::format("{}: expected {}, found {}", what, wanted, found)});
    }

    void Compare(const ExpectedNumber& expected) {
        static constexpr const char* kNames[] = {"locks held", "the result before", "performance",
                                                 "thermal level"};
        const int found = NumberOf(expected.what);
        if (found == expected.value) return;
        Fail(kNames[static_cast<size_t>(expected.what)], std::to_string(expected.value),
             std::to_string(found));
    }

    int NumberOf(ExpectedNumber::What what) {
        using What = ExpectedNumber::What;
        if (what == What::kLocks) return static_cast<int>(mRun.phone.Hal().Held().size());
        if (what == What::kResult) return mLastResult;
        return mRun.server.Status()[what == What::kPerformance ? "mPB_Prior" : "mTB_Prior"];
    }

    void Compare(const ExpectedNode& expected) {
        const Kernel& kernel = mRun.phone.GetKernel();
        const std::string found =
            kernel.Has(expected.path) ? kernel.Value(expected.path) : "no such node";
        if (found != expected.value) Fail(expected.path, expected.value, found);
    }

    void Compare(const TagValue& expected) {
        const Kernel& kernel = mRun.phone.GetKernel();
        const std::vector<std::string> paths = TagNodes(expected.tag, mRun.device);
        const auto present = std::find_if(paths.begin(), paths.end(),
                                          [&](const auto& path) { return kernel.Has(path); });
        const std::string found = present == paths.end() ? "no node" : kernel.Value(*present);
        const std::string wanted = std::to_string(expected.value);
        if (found != wanted) Fail(TagLabel(expected.tag, mLayout), wanted, found);
    }

    void Compare(const ExpectedLock& expected) {
        const std::string wanted = expected.isHeld ? "to be held" : "not to be held";
        const bool needsOwner = expected.cmdId || expected.clientId;
        if (needsOwner && !mRun.phone.GetClock().IsVirtual()) {
            return Fail(expected.text, wanted, kNotOnRealClock);
        }
        const std::vector<PerfHal::Lock> held = mRun.phone.Hal().Held();
        const bool isHeld = std::any_of(held.begin(), held.end(), [&](const PerfHal::Lock& lock) {
            return Fits(lock, expected);
        });
        if (isHeld != expected.isHeld) Fail(expected.text, wanted, HeldText(expected));
    }

    void Compare(const ExpectedLog& expected) {
        const std::string what = LogText(expected);
        const std::string wanted = expected.isLogged ? "one" : "none";
        if (!mRun.phone.GetClock().IsVirtual()) return Fail(what, wanted, kNotOnRealClock);
        const auto fits = [&expected](const LogLine& line) {
            if (expected.priority && line.priority != *expected.priority) return false;
            const std::string text = WithoutNewline(line.text);
            if (expected.text && text != *expected.text) return false;
            return !expected.part || text.find(*expected.part) != std::string::npos;
        };
        const auto found = std::find_if(mLog.begin(), mLog.end(), fits);
        if ((found != mLog.end()) == expected.isLogged) return;
        if (!expected.isLogged) return Fail(what, wanted, LineText(*found));
        std::vector<std::string> last;
        for (size_t i = mLog.size() - std::min(mLog.size(), kMostShown); i < mLog.size(); ++i) {
            last.push_back("'" + LineText(mLog[i]) + "'");
        }
        Fail(what, wanted,
             last.empty() ? "no line at all"
                          : fmt::format("none among {}, the last: {}", mLog.size(), Join(last)));
    }

    bool Fits(const PerfHal::Lock& lock, const ExpectedLock& expected) const {
        if (expected.opcode) {
            const std::optional<int> value = ValueIn(lock, *expected.opcode);
            if (!value || (expected.value && value != expected.value)) return false;
        }
        if (!expected.cmdId && !expected.clientId) return true;
        const BookedLock* booked = mRun.book.FindLock(lock.handle);
        const RequestFacts* owner =
            booked && booked->askedBy ? booked->askedBy->facts.get() : nullptr;
        return owner && owner->cmdId == expected.cmdId && owner->clientId == expected.clientId;
    }

    // The locks that come closest: those on the resource, else all of them.
    std::string HeldText(const ExpectedLock& expected) const {
        std::vector<std::string> held;
        for (const PerfHal::Lock& lock : mRun.phone.Hal().Held()) {
            std::string text = fmt::format("lock {}", lock.handle);
            if (expected.opcode) {
                const std::optional<int> value = ValueIn(lock, *expected.opcode);
                if (!value) continue;
                text +=
                    fmt::format(" on {} = {}", ResourceOf(*expected.opcode, mLayout).name, *value);
            }
            const BookedLock* booked = mRun.book.FindLock(lock.handle);
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

    const RunParts& mRun;
    const Layout mLayout;
    const std::vector<LogLine>& mLog;
    const int mLastResult;
    int mLine = 0;
    std::vector<FailedExpectation> mFailed;
};

}  // namespace

std::vector<FailedExpectation> Compare(const RunParts& run, const Expect& expected,
                                       const std::vector<LogLine>& log, int lastResult) {
    return Comparison(run, log, lastResult).Compare(expected);
}

bool ExpectsLog(const Expect& expected) {
    return std::any_of(expected.begin(), expected.end(), [](const Expected& each) {
        return std::holds_alternative<ExpectedLog>(each.what);
    });
}

bool ExpectsLog(const std::vector<Step>& steps) {
    return std::any_of(steps.begin(), steps.end(), [](const Step& step) {
        if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
            return ExpectsLog(repeat->steps);
        }
        const auto* expect = std::get_if<Expect>(&step.request);
        return expect && ExpectsLog(*expect);
    });
}

}  // namespace lab

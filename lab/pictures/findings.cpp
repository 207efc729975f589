#include "lab/pictures/findings.h"

#include <cmath>
#include <cstdio>
#include <map>

namespace lab {
namespace {

constexpr char kFailed[] = "failed: ";

// What failed requests say of themselves, in order: findings tell the same in the same order.
class FailedRequests {
  public:
    explicit FailedRequests(const History& history) : mHistory(history) { Next(); }

    // The request that the finding is about.
    std::optional<size_t> Take(const std::string& finding) {
        while (mRequest < mHistory.Requests().size()) {
            const std::string& result = mHistory.Requests()[mRequest].result;
            const size_t end = result.find("; ", mPart);
            if (finding.find(result.substr(mPart, end - mPart)) != std::string::npos) {
                const size_t request = mRequest;
                if (end == std::string::npos) {
                    ++mRequest;
                    Next();
                } else {
                    mPart = end + 2;
                }
                return request;
            }
            // Every failed request has its findings: this one has had them, and what is left of it
            // only looked like another.
            if (mPart == kPartsBegin) break;
            ++mRequest;
            Next();
        }
        return std::nullopt;
    }

  private:
    static constexpr size_t kPartsBegin = sizeof(kFailed) - 1;

    void Next() {
        const std::vector<History::Request>& requests = mHistory.Requests();
        while (mRequest < requests.size() && !requests[mRequest].result.starts_with(kFailed)) {
            ++mRequest;
        }
        mPart = kPartsBegin;
    }

    const History& mHistory;
    size_t mRequest = 0;  // the one whose findings come next
    size_t mPart = 0;     // where the next of them begins in its result
};

}  // namespace

std::vector<PlacedFinding> PlaceFindings(const History& history, const PictureHead& head) {
    std::multimap<std::string, const History::Finding*> known;
    for (const History::Finding& finding : history.findings) known.emplace(finding.text, &finding);
    std::map<int, size_t> held;
    for (size_t i = 0; i < history.Locks().size(); ++i) {
        const History::Lock& lock = history.Locks()[i];
        if (lock.how == History::LockEnd::kHeld) held[lock.handle] = i;
    }
    FailedRequests failed(history);
    std::vector<PlacedFinding> placed;
    for (const std::string& text : head.findings) {
        PlacedFinding& finding = placed.emplace_back();
        finding.text = text;
        const auto told = known.find(text);
        if (told != known.end()) {
            finding.at = told->second->at;
            finding.request = told->second->request;
            finding.lock = told->second->lock;
            known.erase(told);
            continue;
        }
        int handle = 0;
        double seconds = 0;
        int begun = 0;
        if (sscanf(text.c_str(), "%lf s: %n", &seconds, &begun) == 1 && begun > 0) {
            finding.at = std::chrono::milliseconds(std::llround(seconds * 1000));
        } else if (sscanf(text.c_str(), "lock %d is held", &handle) == 1 && held.count(handle)) {
            finding.lock = held[handle];
            finding.at = history.Locks()[finding.lock].Since();
        } else if (const std::optional<size_t> request = failed.Take(text)) {
            finding.request = *request;
            finding.at = history.Requests()[*request].begin;
        }
    }
    return placed;
}

}  // namespace lab

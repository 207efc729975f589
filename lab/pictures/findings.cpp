#include "lab/pictures/findings.h"

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
        if (mParts.empty()) return std::nullopt;
        if (finding.find(mParts.front()) == std::string::npos) return std::nullopt;
        const size_t request = mRequest - 1;
        mParts.erase(mParts.begin());
        if (mParts.empty()) Next();
        return request;
    }

  private:
    void Next() {
        const std::vector<History::Request>& requests = mHistory.Requests();
        while (mParts.empty() && mRequest < requests.size()) {
            const std::string& result = requests[mRequest++].result;
            if (!result.starts_with(kFailed)) continue;
            size_t begin = sizeof(kFailed) - 1;
            for (size_t end = 0; end != std::string::npos; begin = end + 2) {
                end = result.find("; ", begin);
                mParts.push_back(result.substr(begin, end - begin));
            }
        }
    }

    const History& mHistory;
    size_t mRequest = 0;              // the first one not yet looked at
    std::vector<std::string> mParts;  // of the one before
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
        if (sscanf(text.c_str(), "lock %d is held", &handle) == 1 && held.count(handle)) {
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

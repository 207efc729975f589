#include "lab/ask/run_record.h"

#include <fmt/format.h>

#include <sstream>
#include <unordered_map>

#include "lab/server/timeline.h"

namespace lab {
namespace {

// On one line, columns and all.
std::string OneLine(const std::string& text) {
    std::istringstream words(text);
    std::string line;
    for (std::string word; words >> word;) line += (line.empty() ? "" : " ") + word;
    return line;
}

class Keeper {
  public:
    Keeper(Replay& replay, RunRecord& record)
        : mReplay(replay),
          mKernel(replay.GetPhone().GetKernel()),
          mPaths(mKernel.Paths()),
          mRecord(record) {
        for (const std::string& path : mPaths) {
            const std::string& name = NameOf(path);
            if (!name.empty()) mRecord.nodes[name] = OneLine(mKernel.Value(path));
        }
        mTold = mRecord.nodes;
    }

    void Observe(const Event& event) {
        if (const auto* begin = std::get_if<RequestBegin>(&event.what)) {
            RunRecord::Request request;
            const bool isTold = begin->facts && !begin->facts->text.empty();
            request.text = isTold ? begin->facts->text : begin->text;
            request.place = {event.at, begin->line};
            request.asks = begin->facts && (begin->facts->cmdId || begin->facts->clientId);
            mRecord.requests.push_back(std::move(request));
            mIsInRequest = true;
        } else if (const auto* end = std::get_if<RequestEnd>(&event.what)) {
            if (mIsInRequest) EndRequest(*end);
        } else if (const auto* acquire = std::get_if<LockAcquire>(&event.what)) {
            if (mIsInRequest && !acquire->isEarlier) AddLock(*acquire);
        } else if (const auto* access = std::get_if<NodeAccess>(&event.what)) {
            const bool isRead = access->kind == NodeAccess::Kind::kRead;
            if (isRead || access->error != 0) return;
            SetValue(access->path, access->after);
            for (const NodeValue& node : access->alsoChanged) SetValue(node.path, node.value);
        }
    }

  private:
    // One name for a node that several CPUs share; empty for what follows everything.
    const std::string& NameOf(const std::string& path) {
        const auto [entry, isNew] = mNames.try_emplace(path, path);
        if (!isNew) return entry->second;
        if (Book::IsUnwatched(path)) {
            entry->second.clear();
        } else if (path.find("/cpu/cpu") != path.npos) {
            for (const std::string& other : mPaths) {
                if (Book::IsUnwatched(other) || !mKernel.IsSameNode(other, path)) continue;
                entry->second = other;
                break;
            }
        }
        return entry->second;
    }

    void SetValue(const std::string& path, const std::string& value) {
        const std::string& name = NameOf(path);
        if (!name.empty()) mChanged[name] = OneLine(value);
    }

    void AddLock(const LockAcquire& acquire) {
        RunRecord::Lock lock;
        const Layout layout = mReplay.GetBook().ClusterLayout();
        for (size_t at = 0; at + 1 < acquire.list.size(); at += 2) {
            lock.pairs.push_back(
                Timeline::PairText(acquire.list[at], acquire.list[at + 1], layout));
        }
        lock.lasts = !acquire.IsGranted()     ? fmt::format("refused with {}", acquire.returned)
                     : acquire.durationMs > 0 ? fmt::format("{} ms", acquire.durationMs)
                                              : "until released";
        mRecord.requests.back().locks.push_back(std::move(lock));
    }

    void EndRequest(const RequestEnd& end) {
        mIsInRequest = false;
        RunRecord::Request& request = mRecord.requests.back();
        request.result = OneLine(end.result);
        for (const auto& [name, value] : mChanged) {
            if (mTold[name] == value) continue;
            mTold[name] = value;
            request.changed.emplace_back(name, value);
        }
        mChanged.clear();
    }

    Replay& mReplay;
    const Kernel& mKernel;
    const std::vector<std::string> mPaths;
    RunRecord& mRecord;
    bool mIsInRequest = false;
    std::unordered_map<std::string, std::string> mNames;
    std::map<std::string, std::string> mTold;     // as the last request left them
    std::map<std::string, std::string> mChanged;  // since then
};

}  // namespace

RunRecord RecordRun(Replay& replay, const std::string& name) {
    RunRecord record;
    Keeper keeper(replay, record);
    replay.Play([&](const Event& event) { keeper.Observe(event); });
    record.name = name;
    replay.Describe(record);
    if (!record.isCapture) {
        for (RunFinding& finding : replay.GetBook().Findings()) {
            record.findings.push_back(std::move(finding.text));
        }
    }
    for (const auto& [handle, lock] : replay.GetBook().Locks()) {
        if (!record.isCapture || lock.list.empty()) continue;
        const Layout layout = replay.GetBook().ClusterLayout();
        record.findings.push_back(
            fmt::format("{} holds {} at the end", lock.owner,
                        Timeline::PairText(lock.list[0], lock.list[1], layout)));
    }
    return record;
}

}  // namespace lab

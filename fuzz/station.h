// Plays one sequence of requests after another, each on a plug-in that starts afresh, and judges
// what is left of it when all is let go.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "fuzz/desk.h"

namespace fuzz {

class Station {
  public:
    // Boots `device` (a shipped profile's name) on a virtual clock.
    explicit Station(const std::string& device);

    // Draws requests until the source is empty, 50 at most, lets everything go and waits until all
    // time has run out. Returns what is wrong then, below the requests that led there; empty when
    // nothing is.
    std::string Play(Source& source);

    // As Play, for given requests.
    std::string Play(const std::vector<Deed>& deeds);

    // How many requests all sequences had, without those that let everything go.
    uint64_t RequestCount() const { return mRequestCount; }

  private:
    void Begin();
    void Make(const Deed& deed);
    void Pass(int64_t ms);
    void HandOn();
    std::string End();
    std::string StateOf(const std::string& path);
    void Reset();

    Desk mDesk;
    RequestMaker mMaker;
    CallRules mCalls;
    const lab::Book mAtBoot;
    std::unique_ptr<lab::Book> mBook;
    std::unordered_map<std::string, std::string> mBootStates;  // of every node
    std::vector<Deed> mDeeds;
    std::vector<std::string> mFindings;
    uint64_t mRequestCount = 0;
    std::set<std::string> mWritten;
    std::set<int> mOnDemand;          // commands whose duration the server changed
    const Misuse* mMisuse = nullptr;  // the request under way, when it must change nothing
};

}  // namespace fuzz

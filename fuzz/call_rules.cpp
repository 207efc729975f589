#include "fuzz/call_rules.h"

#include <fmt/format.h>

#include "lab/names/node_names.h"
#include "nodes/inter_path_table.h"

namespace fuzz {
namespace {

// A group may hold every tag that a request can name.
constexpr size_t kMostListInts = 2 * 1024;

// Room for as many handles as a soak gives, so that the rules themselves take no more memory on the
// way.
constexpr size_t kMostHandles = size_t{8} << 20;

}  // namespace

CallRules::CallRules(const lab::DeviceProfile& device) {
    mStates.reserve(kMostHandles);
    for (int tag = 0; tag <= lab::kHighestTag; ++tag) {
        for (std::string& path : lab::TagNodes(tag, device)) mKnownNodes.insert(std::move(path));
    }
    for (const tarquel::InterPath& row : tarquel::kInterPaths) mKnownNodes.insert(row.path);
}

void CallRules::Begin() {
    mStates.clear();
    mFirstHandle = 0;
    mLost.clear();
    mFindings.clear();
}

// The HAL counts its handles up.
CallRules::State& CallRules::StateOf(int handle) {
    static State none;
    none = State::kNone;
    if (handle < 1 || (mFirstHandle != 0 && handle < mFirstHandle)) return none;
    if (mFirstHandle == 0) mFirstHandle = handle;
    const auto index = static_cast<size_t>(handle - mFirstHandle);
    if (index >= mStates.size()) mStates.resize(index + 1, State::kNone);
    return mStates[index];
}

void CallRules::Observe(const lab::Event& event) {
    if (const auto* acquire = std::get_if<lab::LockAcquire>(&event.what)) {
        OnAcquire(*acquire);
    } else if (const auto* release = std::get_if<lab::LockRelease>(&event.what)) {
        OnRelease(*release);
    } else if (const auto* expire = std::get_if<lab::LockExpire>(&event.what)) {
        ++mTotals.expired;
        StateOf(expire->handle) = State::kExpired;
        mLost.erase(expire->handle);
    } else if (const auto* access = std::get_if<lab::NodeAccess>(&event.what)) {
        if (access->kind != lab::NodeAccess::Kind::kWrite || access->byHal) return;
        ++mTotals.nodeWrites;
        if (access->error != 0) ++mTotals.nodeRefusals;
        if (mKnownNodes.contains(access->path)) return;
        mFindings.push_back(
            fmt::format("{} is written, which is no node of any tag", access->path));
    }
}

void CallRules::OnAcquire(const lab::LockAcquire& call) {
    if (call.list.empty() || call.list.size() % 2 != 0 || call.list.size() > kMostListInts) {
        mFindings.push_back(fmt::format("a lock with a list of {} ints", call.list.size()));
    }
    if (call.durationMs < 0) {
        mFindings.push_back(fmt::format("a lock for {} ms", call.durationMs));
    }
    const State former = StateOf(call.requestedHandle);
    if (call.requestedHandle > 0 && former == State::kNone) {
        mFindings.push_back(
            fmt::format("lock {} is renewed, which nobody took", call.requestedHandle));
    } else if (former == State::kReleased) {
        mFindings.push_back(
            fmt::format("lock {} is renewed after its release", call.requestedHandle));
    }
    if (call.returned < 1) {
        ++mTotals.refused;
        if (former == State::kHeld) mLost.insert(call.requestedHandle);
        return;
    }
    ++(call.returned == call.requestedHandle ? mTotals.renewed : mTotals.taken);
    StateOf(call.returned) = State::kHeld;
}

void CallRules::OnRelease(const lab::LockRelease& call) {
    ++mTotals.released;
    mLost.erase(call.handle);
    State& state = StateOf(call.handle);
    if (state == State::kNone) {
        mFindings.push_back(fmt::format("lock {} is released, which nobody took", call.handle));
    } else if (state == State::kReleased) {
        mFindings.push_back(fmt::format("lock {} is released twice", call.handle));
    }
    state = State::kReleased;
}

}  // namespace fuzz

#include "lab/logcat/earlier_locks.h"

#include "base/ids.h"

namespace lab {
namespace {

constexpr size_t kMostAtWork = 1024;
constexpr Time kOneRequest = std::chrono::milliseconds(100);

int Number(const CapturedLine& line, size_t index) {
    return static_cast<int>(line.match.numbers.at(index));
}

// What the plug-in says while it reads its scene files, before the first request.
bool IsOfStart(const CapturedLine& line) {
    return line.text.find("is between 4225 ~ 4352") != line.text.npos;
}

}  // namespace

EarlierLock EarlierLocks::Make(EarlierLock::Kind kind, int key, int index, int handle,
                               const CapturedLine& line) {
    return {kind, key, index, handle != 0 ? handle : --mNameless, line.line, true};
}

void EarlierLocks::Grant(int handle) {
    if (handle < 1 || mFirstHandle != 0) return;
    mFirstHandle = handle;
    mIsWhole = mIsWhole || handle == 1;
}

std::optional<EarlierLock> EarlierLocks::Add(const CapturedLine& line) {
    if (mIsOver) return std::nullopt;
    if (line.pid != 0 && mPids.insert(line.pid).second && mPids.size() > 1) {
        mIsOver = true;
        return std::nullopt;
    }
    if (!mHasRequest && IsOfStart(line)) mIsWhole = true;
    const Message message = line.match.message;
    if (message != Message::kOther && message != Message::kUnknown) mHasRequest = true;

    if (mThreads.size() > kMostAtWork) mThreads.clear();
    Thread& thread = mThreads[{line.pid, line.tid}];
    if (line.at - thread.last > kOneRequest) thread = {};
    thread.last = line.at;
    thread.isDebug = thread.isDebug || line.match.onlyDebug;
    std::optional<EarlierLock> found;
    switch (message) {
        case Message::kSetConfig:
            thread.configured = Number(line, 1);
            break;
        case Message::kTagNotHeld:
        case Message::kTagNotGot:
            mTags.insert(Number(line, 0));
            break;
        case Message::kTagRelease:
        case Message::kTagLock:
            found = TagLock(line, thread);
            break;
        case Message::kGroupTaken:
            Grant(Number(line, 3));
            mTags.insert(Number(line, 0));
            break;
        case Message::kEventFresh:
        case Message::kEventHeld:
        case Message::kEventCached:
        case Message::kEventReleased:
        case Message::kLockTaken:
        case Message::kLockRefused:
            found = EventLock(line);
            break;
        case Message::kClientTag:
            AddAsks(line);
            break;
        default:
            break;
    }
    // Nothing comes before a whole capture: it is its lines that are missing.
    if (mIsWhole) return std::nullopt;
    if (found) mAll.push_back(*found);
    return found;
}

std::optional<EarlierLock> EarlierLocks::TagLock(const CapturedLine& line, const Thread& thread) {
    const int tag = Number(line, 0);
    const bool isFirst = mTags.insert(tag).second;
    if (line.match.message == Message::kTagRelease) {
        if (!isFirst || !IsHeldLock(Number(line, 1))) return std::nullopt;
        return Make(EarlierLock::Kind::kTag, tag, 0, Number(line, 1), line);
    }
    Grant(Number(line, 1));
    // What was not held has a line of its own, which is an error, and what was let go has one that
    // only SetDebug turns on.
    if (!isFirst || thread.isDebug || thread.configured != tag) return std::nullopt;
    return Make(EarlierLock::Kind::kTag, tag, 0, 0, line);
}

std::optional<EarlierLock> EarlierLocks::EventLock(const CapturedLine& line) {
    int cmdId = Number(line, 0);
    if (line.match.message == Message::kLockTaken || line.match.message == Message::kLockRefused) {
        const int former = Number(line, 1);
        const int handle = Number(line, 2);
        const auto held = mHeld.find(former);
        if (former != handle) Grant(handle);
        if (held == mHeld.end()) return std::nullopt;
        const auto [key, index] = held->second;
        mHeld.erase(held);
        // Another number: the former lock's time had run out, unless it had none.
        const int durationMs = Number(line, line.match.message == Message::kLockTaken ? 4 : 3);
        if (former != handle && durationMs > 0) return std::nullopt;
        return Make(EarlierLock::Kind::kEvent, key, index, former, line);
    }
    if (cmdId == tarquel::kCmdRegularEventEnd) cmdId = tarquel::kCmdRegularEvent;
    const std::pair<int, int> key(cmdId, Number(line, 1));
    const bool isFirst = mEvents.insert(key).second;
    if (!isFirst) return std::nullopt;
    if (line.match.message == Message::kEventHeld && Number(line, 2) > 0) {
        mHeld[Number(line, 2)] = key;
    }
    if (line.match.message != Message::kEventReleased) return std::nullopt;
    EarlierLock lock = Make(EarlierLock::Kind::kEvent, cmdId, key.second, 0, line);
    lock.isCertain = false;  // the plug-in lets go what has run out too
    return lock;
}

// The line has what everybody has asked for, without what its own request asks.
void EarlierLocks::AddAsks(const CapturedLine& line) {
    // Not the camera's, whose requests have no such line.
    constexpr std::pair<int, size_t> kColumns[] = {{2, 3}, {1, 4}, {3, 5}};
    const int tag = Number(line, 1);
    for (const auto& [client, column] : kColumns) {
        const int value = Number(line, column);
        if (value > 0 && mAsked.insert({client, tag}).second) {
            mAsks.push_back({client, tag, value, line.line});
        }
    }
    mAsked.insert({Number(line, 0), tag});
}

}  // namespace lab

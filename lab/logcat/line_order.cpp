#include "lab/logcat/line_order.h"

#include <algorithm>
#include <vector>

#include "base/ids.h"

namespace lab {
namespace {

using Messages = std::vector<Message>;

constexpr size_t kMostThreads = 1024;

const Messages kLockBefore = {Message::kTagRelease, Message::kTagNotHeld, Message::kTagNotGot};
const Messages kLockAfter = {Message::kTagLock, Message::kNoTagLock};

// Directly above a line of the first kind stands one of the others.
const std::map<Message, Messages> kAbove = {
    {Message::kTagLock, kLockBefore},
    {Message::kNoTagLock, kLockBefore},
    {Message::kClientTag, {Message::kClientOthers}},
    {Message::kEventCached, {Message::kEventFresh, Message::kEventHeld}},
};

// Directly below it stands one of the others.
const std::map<Message, Messages> kBelow = {
    {Message::kClientOthers, {Message::kClientTag}},
    {Message::kEventFresh, {Message::kEventCached}},
    {Message::kEventHeld, {Message::kEventCached}},
    {Message::kEventCached, {Message::kLockTaken, Message::kLockRefused}},
    {Message::kGroupRelease, kLockBefore},
    {Message::kLockTaken, {Message::kActionDone, Message::kActionDoneBare}},
};

// What is set is written or locked: something of it stands below.
const Messages kNeverBelowSet = {
    Message::kSetConfig,  Message::kActionDone, Message::kActionDoneBare, Message::kClientOthers,
    Message::kClientPair, Message::kEventFresh, Message::kEventHeld,      Message::kEventReleased,
    Message::kLockTaken,  Message::kCommonLock, Message::kScenePair,
};

bool Has(const Messages& messages, Message message) {
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

bool MayFollow(Message last, bool isSet, Message message) {
    const auto above = kAbove.find(message);
    if (above != kAbove.end() && !Has(above->second, last)) return false;
    const auto below = kBelow.find(last);
    if (below != kBelow.end() && !Has(below->second, message)) return false;
    if (last == Message::kSetConfig && Has(kNeverBelowSet, message)) return false;
    return !isSet || Has(kLockAfter, message);
}

}  // namespace

bool LineOrder::Add(const CapturedLine& line, bool isFull) {
    if (line.tid == 0 || !isFull) return true;
    if (mLast.size() > kMostThreads) mLast.clear();
    Last& last = mLast[{line.pid, line.tid}];
    const Message message = line.match.message;
    const Last former = last;
    last.message = message == Message::kOther ? Message::kUnknown : message;
    last.isSet = former.message == Message::kSetConfig && Has(kLockBefore, message);
    const bool isQuiet =
        message == Message::kEventCached && line.match.numbers[0] == tarquel::kCmdQuietOnSuccess;
    if (isQuiet) last.message = Message::kUnknown;
    // Nothing is known of what stands beside lines that tell nothing.
    const bool isJudged = former.message != Message::kUnknown &&
                          last.message != Message::kUnknown && message != Message::kLinesLost &&
                          former.message != Message::kLinesLost;
    return !isJudged || MayFollow(former.message, former.isSet, message);
}

}  // namespace lab

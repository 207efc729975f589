// The plug-in's own log messages, so that a capture of a phone's log can be read back.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// What a message tells. kOther: one of the plug-in's, but without a part in the story.
enum class Message : uint8_t {
    kUnknown,
    kActionDone,      // result, command, payload's count, payload's first value
    kActionDoneBare,  // result, command, payload's count
    kBoostsDisabled,
    kCommonLock,   // command, handle
    kLockRefused,  // command, old handle, result, ms
    kLockTaken,    // command, old handle, handle, pairs, ms
    kOnDemand,     // command, ms
    kSceneZero,    // tag, command
    kScenePair,    // pairs, pairs so far, tag, value
    kSceneRefused,
    kTaskId,  // command, task
    kNoTaskId,
    kEventReleased,  // command, index
    kEventFresh,     // command, index
    kEventHeld,      // command, index, handle, mark
    kEventCached,    // command, index, handle
    kTimerRan,
    kTimerStopped,
    kControlType,  // type, boosts enabled
    kSetConfig,    // tags, tag, value, mPerf, mThermal, mEnable
    kTagLock,      // tag, handle, opcode, value
    kTagRelease,   // tag, handle
    kNoTagLock,
    kTagNotHeld,    // tag, tag, 0
    kTagNotGot,     // tag
    kConfigZero,    // tag, reason
    kGroupRelease,  // handle
    kGroupPair,     // ms, tag, opcode, value
    kGroupTaken,    // group, ms, ints, handle
    kGroupRefused,  // client, ms, result
    kClientTag,     // client, tag, minimum, thermal's, power's, eapa's, camera's
    kClientOthers,  // three values
    kClientPair,    // index, tag, index, value arbitrated, index, value asked
    kBadValue,      // value
    kBadRequest,    // client, tags
    kBadTag,        // tag
    kReadNode,      // result, value's path, value
    kWriteNode,     // result, path, value
    kReadMissing,   // path
    kWriteMissing,  // path
    kInterOpen,     // path, errno
    kInterWrite,    // value, path, errno
    kCeiling,       // command, tag, value
    kLimitEffect,   // something about a limit; tells nothing that others do not
    kOther,
    kLinesLost,  // no message: the logger says that it dropped so many of the thread's lines
};

// A message as the sources have it, without a newline. Conversions: %d, %3d, %s, %x, %08x, %8X.
struct MessageForm {
    Message message;
    std::string_view text;
    bool onlyDebug = false;  // written only while SetDebug has turned the lines on
};

// Every message that the plug-in can write to the log.
const std::vector<MessageForm>& MessageForms();

struct MessageMatch {
    Message message = Message::kUnknown;
    bool isTorn = false;  // one of the messages, but cut or damaged: it tells nothing
    bool onlyDebug = false;
    std::vector<int64_t> numbers;    // of the integer conversions, in order
    std::vector<std::string> words;  // of %s, in order
};

// Which message `text` is. Unknown text (of a later plug-in, of another program) is no match.
MessageMatch MatchMessage(std::string_view text);

// False for a text that is none of the messages by its first letters; quick.
bool MayBeMessage(std::string_view text);

// True for a text that begins as the plug-in's messages do: "tarquel: " and its kin.
bool BeginsAsPlugin(std::string_view text);

}  // namespace lab

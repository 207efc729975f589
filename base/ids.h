// Who makes a request: ids of clients and of commands that the plug-in treats specially.
#pragma once

namespace tarquel {

enum ClientId : int {
    kClientNobody = 0,
    kClientPower = 1,
    kClientTemp = 2,  // thermal control
    kClientEapa = 3,
    kClientCamera = 4,
};

// Every other id but kClientNobody is a command's.
constexpr bool IsClient(int id) {
    return id >= kClientPower && id <= kClientCamera;
}

inline constexpr int kNoCommand = -1;             // marks an action that is none
inline constexpr int kCmdRegularEvent = 5378;     // always an event: its lock is renewed
inline constexpr int kCmdRegularEventEnd = 5379;  // ends the lock of kCmdRegularEvent
inline constexpr int kCmdQuietOnSuccess = 13267;  // too frequent to log when it succeeds

// Long-term scenes: with duration 0 they name tags and go to the frequency manager.
constexpr bool IsLongTermScene(int cmdId) {
    return cmdId >= 12288 && cmdId <= 13568;
}

// Commands whose elements the loader announces in the log.
constexpr bool IsAnnounced(int cmdId) {
    return cmdId >= 4225 && cmdId <= 4352;
}

// The most (tag, value) pairs of one scene request.
inline constexpr int kMaxScenePairs = 134;

// The value of a one-value payload: what it asks of the command.
inline constexpr int kEventOn = 0;
inline constexpr int kEventOff = -1;

}  // namespace tarquel

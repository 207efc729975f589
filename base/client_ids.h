// Who asks for limits, and tags that are more than a tunable.
#pragma once

namespace tarquel {

enum ClientId : int {
    kClientNobody = 0,
    kClientPower = 1,
    kClientTemp = 2,  // thermal control
    kClientEapa = 3,
    kClientCamera = 4,
};

constexpr bool IsClient(int id) {
    return id >= kClientPower && id <= kClientCamera;
}

enum Tag : int {
    kTagLittleMin = 0,
    kTagLittleMax = 1,
    kTagMiddleMin = 3,
    kTagMiddleMax = 4,
    kTagLastMin = 6,
    kTagLastMax = 7,
    kTagGpuMin = 9,
    kTagGpuMax = 10,
    kTagGpuMinClock = 49,
    kTagGpuMaxClock = 50,
    kTagControlType = 57,
    kTagGroup = 98,
};

// The ceilings of the CPU clusters.
constexpr bool IsCpuMaxTag(int tag) {
    return tag == kTagLittleMax || tag == kTagMiddleMax || tag == kTagLastMax;
}

// The most tags of one request: far above the vocabulary, which ends at 133. A count beyond it is a
// caller's mistake.
inline constexpr int kMaxTags = 1024;

}  // namespace tarquel

// The records that cross to the policy server, byte for byte: a 64-bit target, with either standard
// library.
#include <gtest/gtest.h>

#include <cstddef>

#include "tarquel/action.h"
#include "tarquel/plat.h"
#include "tarquel/raw_xml_data.h"

// offsetof on records with virtual functions is conditionally supported; both compilers do it.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace {

constexpr size_t kString = sizeof(std::string);
constexpr size_t kVector = sizeof(std::vector<int>);
static_assert(sizeof(void*) == 8 && kVector == 24);
#ifdef _LIBCPP_VERSION
static_assert(kString == 24);
#else
static_assert(kString == 32);
#endif

static_assert(offsetof(RawXmlData, cmdId) == 0);
static_assert(offsetof(RawXmlData, headValue0) == 4);
static_assert(offsetof(RawXmlData, headValue1) == 8);
static_assert(offsetof(RawXmlData, headValue2) == 12);
static_assert(offsetof(RawXmlData, offDelayTime) == 16);
static_assert(offsetof(RawXmlData, offDelayPerc) == 20);
static_assert(offsetof(RawXmlData, stateMask) == 24);
static_assert(offsetof(RawXmlData, skip) == 28);
static_assert(offsetof(RawXmlData, taskBoost) == 29);
static_assert(offsetof(RawXmlData, name) == 32);
static_assert(offsetof(RawXmlData, keys) == 32 + kString);
static_assert(offsetof(RawXmlData, values) == 32 + kString + kVector);
static_assert(offsetof(RawXmlData, boostLevels) == 32 + kString + 2 * kVector);
static_assert(offsetof(RawXmlData, next) == 32 + kString + 3 * kVector);
static_assert(sizeof(RawXmlData) == 40 + kString + 3 * kVector);

static_assert(offsetof(Action, cmdId) == 8);
static_assert(offsetof(Action, duration) == 12);
static_assert(offsetof(Action, boostLimitLevel) == 16);
static_assert(offsetof(Action, tagLen) == 20);
static_assert(offsetof(Action, headValue0) == 24);
static_assert(offsetof(Action, headValue2) == 32);
static_assert(offsetof(Action, offDelayTime) == 36);
static_assert(offsetof(Action, offDelayPerc) == 40);
static_assert(offsetof(Action, stateMask) == 44);
static_assert(offsetof(Action, hasOffDelay) == 48);
static_assert(offsetof(Action, skip) == 49);
static_assert(offsetof(Action, taskBoost) == 50);
static_assert(offsetof(Action, breakThrough) == 51);
static_assert(offsetof(Action, name) == 56);
static_assert(offsetof(Action, reserved) == 56 + kString);
static_assert(offsetof(Action, perfList) == 56 + kString + kVector);
static_assert(offsetof(Action, boostLevels) == 56 + kString + 2 * kVector);
static_assert(offsetof(Action, next) == 56 + kString + 3 * kVector);
static_assert(sizeof(Action) == 64 + kString + 3 * kVector);
static_assert(sizeof(QcomAction) == sizeof(Action) + kVector);

static_assert(sizeof(TarQuelPlat) == 24);

}  // namespace

// The pins above fail when this file is compiled; what is left to run is the server's side object.
TEST(RecordLayout, PlatformBaseDestroysTheServersObject) {
    struct HostObject : TarQuelPlat::HostSide {
        explicit HostObject(bool& flag) : destroyed(flag) {}
        ~HostObject() override { destroyed = true; }
        bool& destroyed;
    };
    struct Platform : TarQuelPlat {
        int Initialize() override { return 0; }
    };
    bool destroyed = false;
    {
        Platform platform;
        auto* base = reinterpret_cast<void**>(&platform);
        base[1] = static_cast<TarQuelPlat::HostSide*>(new HostObject(destroyed));
    }
    EXPECT_TRUE(destroyed);
}

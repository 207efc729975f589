// The perf-lock client: the HAL opened at run time, and what surrounds each of its calls.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "tests/support/plugin_test.h"

using testing::ElementsAre;
using testing::IsEmpty;

using PerfLockTest = PluginTest;

TEST_F(PerfLockTest, CallsStandInTraceSections) {
    Boot();
    Adapter().SetDebug(true);
    const auto action = MakeAction(4353, 100, {0x40C00000, 1, 0x40800000, 1500});
    Do(*action);
    EXPECT_THAT(
        Sections(),
        ElementsAre("PerfServiceAcq duration=100, len=4, list=0x40C00000 1 0x40800000 1500 ",
                    "PerfLockAcq reqHandle=0", "end", "PerfLockAcq retHandle=1", "end", "end"));
    Forget();
    const auto check =
        Exported<int (*)(PerfAdapter*, int)>("_ZN15QcomPerfAdapter19CheckPerfLockHandleEi");
    EXPECT_EQ(check(&Adapter(), 1), 0);
    EXPECT_THAT(Sections(), ElementsAre("PerfLockRel handle=1", "end"));
}

TEST_F(PerfLockTest, HandleThatHoldsNothingIsReturnedUnreleased) {
    Boot();
    const auto check =
        Exported<int (*)(PerfAdapter*, int)>("_ZN15QcomPerfAdapter19CheckPerfLockHandleEi");
    EXPECT_EQ(check(&Adapter(), -1), -1);
    EXPECT_EQ(check(&Adapter(), 0), 0);
    EXPECT_THAT(HalCalls(), IsEmpty());
    EXPECT_EQ(check(&Adapter(), -2), 0);
    EXPECT_EQ(HalCalls().size(), 1u);
}

TEST_F(PerfLockTest, MissingLibraryIsLookedForAtEveryCall) {
    lab::Phone::Options options;
    options.hal = false;
    Boot("sm8450", options);
    const auto action = MakeAction(4353, 100, {0x40C00000, 1});
    EXPECT_EQ(Do(*action), 0);
    EXPECT_EQ(Do(*action), 0);
    const std::string missing = "tarquel: dlopen() libqti-perfd-client.so failed!\n";
    const std::string refused =
        "tarquel: PerfLockAcq failed! cmdId = 4353, oldHandle = 0, updateHandle = 0, duration = "
        "100\n";
    EXPECT_THAT(Log(kError), ElementsAre(missing, refused, missing, refused));
}

class ClosedLibraryTest : public PluginTest, public testing::WithParamInterface<lab::HalLibrary> {};

TEST_P(ClosedLibraryTest, IsNotKeptOpen) {
    StartPhone("sm8450");
    GetPhone().SetHalLibrary(GetParam());
    LoadLibrary();
    Initialize();
    Do(*MakeAction(4353, 100, {0x40C00000, 1}));
    Exported<TarQuelPlat* (*)()>("GetPlat")()->~TarQuelPlat();
    GetPhone().SetHalLibrary(lab::HalLibrary::kAbsent);
    EXPECT_EQ(dlopen("libqti-perfd-client.so", RTLD_NOW | RTLD_NOLOAD), nullptr);
    // Nor are its functions called any more.
    Initialize();
    Forget();
    Do(*MakeAction(4353, 100, {0x40C00000, 1}));
    Exported<int (*)(PerfAdapter*, int)>("_ZN15QcomPerfAdapter19CheckPerfLockHandleEi")(&Adapter(),
                                                                                        1);
    EXPECT_THAT(HalCalls(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(PerfLock, ClosedLibraryTest,
                         testing::Values(lab::HalLibrary::kWhole, lab::HalLibrary::kWithoutAcquire,
                                         lab::HalLibrary::kWithoutRelease));

struct LibraryPropertyCase {
    const char* value;  // null: unset
    std::vector<std::string> errors;
};

class LibraryPropertyTest : public PluginTest,
                            public testing::WithParamInterface<LibraryPropertyCase> {};

TEST_P(LibraryPropertyTest, DecidesWhetherALibraryIsOpened) {
    StartPhone("sm8450");
    if (GetParam().value != nullptr) {
        GetPhone().SetProperty("ro.vendor.extension_library", GetParam().value);
    } else {
        GetPhone().GetFaults().HideProperties({"ro.vendor.extension_library"});
    }
    LoadLibrary();
    DescribeClusters();
    Initialize();
    EXPECT_EQ(Log(kError), GetParam().errors);

    // The library is found as soon as the property is right.
    GetPhone().GetFaults().HideProperties({});
    GetPhone().SetProperty("ro.vendor.extension_library", "libqti-perfd-client.so");
    Do(*MakeAction(4353, 100, {0x40C00000, 1}));
    EXPECT_THAT(HalCalls(), ElementsAre("acq 0 100ms 0x40C00000=1 -> 1"));
}

INSTANTIATE_TEST_SUITE_P(
    PerfLock, LibraryPropertyTest,
    testing::Values(
        LibraryPropertyCase{nullptr, {"tarquel: property_get() failed!\n"}},
        LibraryPropertyCase{"/vendor/lib64/libqti-perfd-client.so", {}},
        LibraryPropertyCase{"libnone.so", {"tarquel: dlopen() libqti-perfd-client.so failed!\n"}},
        LibraryPropertyCase{"x", {"tarquel: dlopen() libqti-perfd-client.so failed!\n"}},
        // A library that has neither function: both are missed.
        LibraryPropertyCase{"libm.so.6",
                            {"tarquel: dlsym() perf_lock_acq failed!\n",
                             "tarquel: dlsym() perf_lock_rel failed!\n"}}));

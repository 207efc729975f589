// The entry points and the adapter's frame.
#include <dlfcn.h>

#include "tests/support/plugin_test.h"

using EntryTest = PluginTest;

TEST_F(EntryTest, ThereIsOnePlatformAndOneAdapter) {
    Boot();
    const auto getPlat = Exported<TarQuelPlat* (*)()>("GetPlat");
    TarQuelPlat* plat = getPlat();
    EXPECT_EQ(plat, getPlat());
    EXPECT_EQ(plat, Exported<TarQuelPlat* (*)()>("_ZN12QcomPerfPlat11GetInstanceEv")());

    Forget();
    EXPECT_EQ(plat->Initialize(), 0);
    const auto lines = GetPhone().Events().All<lab::LogLine>();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, kError);
    EXPECT_EQ(lines[0].tag, "tarquel server");
    EXPECT_EQ(lines[0].text, "tarquel: server plat has been created, do not need initialize again");
    const auto getAdapter =
        Exported<PerfAdapter* (*)(TarQuelPlat*)>("_ZNK12QcomPerfPlat10GetAdapterEv");
    EXPECT_EQ(getAdapter(plat), &Adapter());
}

TEST_F(EntryTest, DestroyedPlatformGivesEverythingBackAndCanBeMadeAgain) {
    Boot();
    const auto getPlat = Exported<TarQuelPlat* (*)()>("GetPlat");
    const auto getAdapter =
        Exported<PerfAdapter* (*)(TarQuelPlat*)>("_ZNK12QcomPerfPlat10GetAdapterEv");
    getPlat()->~TarQuelPlat();
    const auto timers = GetPhone().Events().All<lab::TimerEvent>();
    ASSERT_FALSE(timers.empty());
    EXPECT_EQ(timers.back().kind, lab::TimerEvent::Kind::kDelete);

    EXPECT_EQ(getAdapter(getPlat()), nullptr);
    EXPECT_EQ(getPlat()->Initialize(), 0);
    EXPECT_NE(getAdapter(getPlat()), nullptr);
}

struct UsertypeCase {
    const char* usertype;  // null: unset
    bool writesInfo;
};

class UsertypeTest : public PluginTest, public testing::WithParamInterface<UsertypeCase> {};

TEST_P(UsertypeTest, DecidesWhetherInfoLinesAndSectionsAreWritten) {
    StartPhone("sm8450");
    if (GetParam().usertype != nullptr) {
        GetPhone().SetProperty("ro.logsystem.usertype", GetParam().usertype);
    }
    LoadLibrary();
    DescribeClusters();
    Initialize();
    Forget();

    Do(*MakeAction(4353, 100, {0x40C00000, 1}));
    EXPECT_EQ(!Log(kInfo).empty(), GetParam().writesInfo);
    EXPECT_EQ(!Sections().empty(), GetParam().writesInfo);
    EXPECT_EQ(HalCalls().size(), 1u);

    // The frequency manager mirrors the switch.
    Forget();
    Limit(1, {{1, 1171200}});
    EXPECT_EQ(HasLogged(kInfo,
                        "tarquel: TagConfigs clientId = 1, Tag = 1, min = -1, Temp = -1, Power = "
                        "-1, Eapa = -1, Camera = -1\n"),
              GetParam().writesInfo);
}

INSTANTIATE_TEST_SUITE_P(Entry, UsertypeTest,
                         testing::Values(UsertypeCase{nullptr, false}, UsertypeCase{"1", false},
                                         UsertypeCase{"6", false}, UsertypeCase{"3", true},
                                         UsertypeCase{"61", true}));

TEST_F(EntryTest, DebugSwitchTurnsLinesAndSectionsOnAndOff) {
    Boot();
    const auto action = MakeAction(4353, 100, {0x40C00000, 1});
    EXPECT_EQ(Adapter().SetDebug(true), 0);
    Do(*action);
    EXPECT_FALSE(Sections().empty());
    EXPECT_TRUE(HasLogged(kInfo, "tarquel: DoAction ret = 0, cmdId = 4353, payloadNum = 0\n"));

    Forget();
    GetPhone().SetTraceEnabled(false);
    Do(*action);
    EXPECT_TRUE(Sections().empty());
    EXPECT_FALSE(Log(kInfo).empty());

    Forget();
    EXPECT_EQ(Adapter().SetDebug(false), 0);
    Do(*action);
    EXPECT_TRUE(Log(kInfo).empty());
    EXPECT_TRUE(Log(kError).empty());
}

TEST_F(EntryTest, ManagersAreIndependentAndOwnedByTheirCaller) {
    Boot();
    const auto getManager = Exported<QcomFreqManager* (*)(PerfAdapter&)>("GetFreqManager");
    QcomFreqManager* first = getManager(Adapter());
    QcomFreqManager* second = getManager(Adapter());
    EXPECT_NE(first, second);
    // Both leave through the deleting destructor, their second virtual slot.
    for (QcomFreqManager* manager : {first, second}) {
        void** slots = *reinterpret_cast<void***>(manager);
        reinterpret_cast<void (*)(QcomFreqManager*)>(slots[1])(manager);
    }
}

// What a mistaken or hostile caller passes to each slot and exported member: refused with a log
// line, nothing changed.
#include <gmock/gmock.h>

#include <climits>
#include <functional>
#include <stdexcept>

#include "tests/support/plugin_test.h"

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr int kOn = 0;
constexpr size_t kLong = 100'000;

// The adapter's slots as they are called across the boundary: references are pointers.
enum Slot : size_t {
    kSlotDoAction = 4,
    kSlotAddTaskBoost = 5,
    kSlotAddScaling = 6,
    kSlotEventStatus = 9,
    kSlotTagValue = 11,
    kSlotChipType = 13,
};

class BadCallerTest : public PluginTest {
  protected:
    void SetUp() override { Boot(); }

  public:
    template <typename... Arguments>
    int CallSlot(Slot slot, Arguments... arguments) {
        using Function = int (*)(PerfAdapter*, Arguments...);
        void** const table = *reinterpret_cast<void***>(&Adapter());
        return reinterpret_cast<Function>(table[slot])(&Adapter(), arguments...);
    }

    template <typename Result, typename... Arguments>
    Result Call(const char* symbol, Arguments... arguments) {
        return Exported<Result (*)(Arguments...)>(symbol)(arguments...);
    }

    void Save(const QcomAction* action, int* duration, int* list, int* len) {
        Call<void>("_ZN15QcomPerfAdapter11SavePerfValERK10QcomActionPKiRiPiS5_", &Adapter(), action,
                   static_cast<const int*>(nullptr), duration, list, len);
    }

    int DoInter(const QcomAction* action) {
        return Call<int>("_ZN15QcomPerfAdapter17DoInterFreqActionERK10QcomActionPKi", &Adapter(),
                         action, &kOn);
    }

    void* Inter(RawXmlData* element) {
        auto* const loader = Call<void*>("CreateTarQuelLoadXml");
        auto* const made =
            Call<void*>("_ZN15QcomPerfLoadXml19InterRawXmlToActionER10RawXmlData", loader, element);
        Free(loader);
        return made;
    }

    void Delete(Action* head) {
        auto* const loader = Call<void*>("CreateTarQuelLoadXml");
        Call<void>("_ZN15QcomPerfLoadXml12DeleteActionER6Action", loader, head);
        Free(loader);
    }

    // How many commands a loader makes of one element.
    int Loaded(const std::string& name, std::vector<std::string> keys,
               std::vector<std::string> values) {
        Command command(4353);
        command.Element(name, {});
        command.Last().keys = std::move(keys);
        command.Last().values = std::move(values);
        return static_cast<int>(Parse({&command}).size());
    }

    // What a scene of two pairs' worth of claims comes to.
    int SceneOf(int tagLen, unsigned payloadNum, const int* payload) {
        const auto action = Pairs({7, 1843200}, tagLen, 12288);
        action->duration = 0;
        return Adapter().DoAction(*action, payloadNum, payload);
    }

    // What stands behind the task-boost opcode afterwards; 5 before.
    int TaskBoost(int tagLen, const std::string& message) {
        const auto action = Pairs({0x40C80000, 5}, tagLen);
        action->taskBoost = 1;
        Adapter().DoAddTaskBoostInfo(*action, message);
        return action->perfList[1];
    }

    int TagValue(const Action* action) {
        int tags[133];
        int freqs[133];
        return CallSlot(kSlotTagValue, action, 0, static_cast<int*>(tags),
                        static_cast<int*>(freqs));
    }

    // The sum of two slots that held 5 each.
    int Get(int count, std::vector<int> tags) {
        int values[] = {5, 5};
        Adapter().DoPerfGetConfig(count, tags.data(), values);
        return values[0] + values[1];
    }

    int BoostAtTheEnds() {
        for (const int cmdId : {INT_MIN, -1, 0, INT_MAX}) {
            for (const long now : {LONG_MIN, 0L, LONG_MAX}) Adapter().UpdateBoostCount(cmdId, now);
            if (!Adapter().CanThermalBoost(cmdId)) return 0;
        }
        return 1;
    }

    int CacheAtTheEnds() {
        for (const int id : {INT_MIN, -1, INT_MAX}) {
            Call<void>("_ZN15QcomPerfAdapter18DoEventCacheHandleEiii", &Adapter(), id, id, 0);
        }
        return 0;
    }

    // The first int of a list that SavePerfVal might have filled; -7 before.
    int Saved(const QcomAction* action, bool hasDuration, bool hasLen, int len = 2) {
        int duration = 9;
        int list[2] = {-7, -7};
        Save(action, hasDuration ? &duration : nullptr, list, hasLen ? &len : nullptr);
        return list[0];
    }
    int SavedToNull() {
        int duration = 9;
        int len = 2;
        Save(Pairs({1, 2}, 1).get(), &duration, nullptr, &len);
        return len;
    }

    int InterOf(int tagLen, std::vector<std::string> list) {
        const auto action = Pairs({}, tagLen);
        action->interList = std::move(list);
        return DoInter(action.get());
    }

    int Dump() {
        auto* const manager = Call<void*>("_ZNK15QcomPerfAdapter11FreqManagerEv", &Adapter());
        Call<void>("_ZN15QcomFreqManager12DumpFreqListERN7android7String8E", manager,
                   static_cast<void*>(nullptr));
        return 0;
    }

    // A loader leaves through the deleting destructor, its second virtual slot.
    static void Free(void* loader) {
        reinterpret_cast<void (*)(void*)>((*static_cast<void***>(loader))[1])(loader);
    }

    std::unique_ptr<QcomAction> Pairs(std::vector<int> pairs, int tagLen, int cmdId = 4353) {
        auto action = MakeAction(cmdId, 10, std::move(pairs));
        action->tagLen = tagLen;
        return action;
    }

    int Limits(int client, int count, const int* tags, const int* values) {
        return Adapter().DoPerfSetConfig(client, count, tags, values);
    }

    using PluginTest::Adapter;
    using PluginTest::Do;
    using PluginTest::Limit;
    using PluginTest::MakeAction;
    using PluginTest::Scene;
};

// One entry and one attack. The attack returns what the entry answered, in `result`'s terms.
struct Attack {
    const char* name;
    std::function<int(BadCallerTest&)> run;
    int result;
    const char* error;  // part of a line at error priority; null: by its contract it says nothing
};

void PrintTo(const Attack& attack, std::ostream* out) {
    *out << attack.name;
}

const char* const kSilent = nullptr;
constexpr int kTags[] = {1, 7};
constexpr int kValues[] = {1171200, 1843200};

const char* const kNull = "argument is NULL in ";
const char* const kList = "tarquel: action list is invalid, cmdId is 4353, tagLen is ";
const char* const kRequest = "invalid request";
const char* const kEndless = "action chain is endless";
const char* const kXml = "tarquel: xml is invalid, cmdId is 4353 element is ";

// A chain of two that leads back into itself.
struct Cycle {
    explicit Cycle(BadCallerTest& test)
        : first(test.Pairs({0x40C80000, 0}, 1)), second(test.Pairs({0x40C80000, 0}, 1)) {
        first->next = second.get();
        second->next = first.get();
        first->taskBoost = second->taskBoost = 1;
    }
    std::unique_ptr<QcomAction> first;
    std::unique_ptr<QcomAction> second;
};

using T = BadCallerTest;
constexpr const Action* kNoAction = nullptr;

// clang-format off
const Attack kAttacks[] = {
    // name, attack, what the entry answers, what the log says
    {"ActionNull",            [](T& t) { return t.CallSlot(kSlotDoAction, kNoAction, 0u, &kOn); },           -1, kNull},
    {"ActionCycle",           [](T& t) { return t.Do(*Cycle(t).first); },                                    -1, kEndless},
    {"ActionNegativeCount",   [](T& t) { return t.Do(*t.Pairs({1, 2}, INT_MIN)); },                          -1, kSilent},
    {"SceneNegativeCount",    [](T& t) { return t.SceneOf(-1, 1, &kOn); },                                    0, kSilent},
    {"TaskBoostNegative",     [](T& t) { return t.TaskBoost(-1, "targetPid=7"); },                            7, kSilent},
    {"ActionHugeCount",       [](T& t) { return t.Do(*t.Pairs({1, 2}, INT_MAX)); },                          -1, kList},
    {"ActionShortList",       [](T& t) { return t.Do(*t.Pairs({1, 2}, 2)); },                                -1, kList},
    {"SceneShortList",        [](T& t) { return t.SceneOf(2, 1, &kOn); },                                    -1, "action list is invalid, cmdId is 12288"},
    {"SceneHugePayload",      [](T& t) { return t.SceneOf(1, UINT_MAX, &kOn); },                             -1, "invalid special scene parameters"},
    {"SceneNullPayload",      [](T& t) { return t.SceneOf(1, 1, nullptr); },                                 -1, "invalid special scene parameters"},
    {"SceneHighestTag",       [](T& t) { return t.Scene(12288, {{INT_MAX, 5}}, kOn); },                      -1, "invalid tag 2147483647"},
    {"TaskBoostNull",         [](T& t) { std::string m; return t.CallSlot(kSlotAddTaskBoost, kNoAction, &m); }, 0, kNull},
    {"TaskBoostNullMessage",  [](T& t) { const auto a = t.Pairs({1, 2}, 1); return t.CallSlot(kSlotAddTaskBoost, a.get(), nullptr); }, 0, kNull},
    {"TaskBoostCycle",        [](T& t) { return t.Adapter().DoAddTaskBoostInfo(*Cycle(t).first, "targetPid=7"); }, 0, kEndless},
    {"TaskBoostLongMessage",  [](T& t) { return t.TaskBoost(1, "targetPid=" + std::string(kLong, '7')); },    5, "get targetPid: snprintf_s error"},
    {"TaskBoostShortList",    [](T& t) { return t.TaskBoost(INT_MAX, "targetPid=7"); },                       5, kList},
    {"ScalingNull",           [](T& t) { return t.CallSlot(kSlotAddScaling, kNoAction); },                    0, kNull},
    {"ScalingCycle",          [](T& t) { return t.Adapter().DoAddScalingInfo(*Cycle(t).first); },             0, kEndless},
    {"LimitNullTags",         [](T& t) { return t.Limits(1, 2, nullptr, kValues); },                         -1, kRequest},
    {"LimitNullValues",       [](T& t) { return t.Limits(2, 2, kTags, nullptr); },                           -1, kRequest},
    {"LimitNegativeCount",    [](T& t) { return t.Limits(3, INT_MIN, kTags, kValues); },                     -1, kRequest},
    {"LimitHugeCount",        [](T& t) { return t.Limits(4, INT_MAX, kTags, kValues); },                     -1, kRequest},
    {"LimitLowestValue",      [](T& t) { return t.Limit(1, {{1, INT_MIN}}); },                               -1, "invalid config value(-2147483648)"},
    {"LimitLowestTag",        [](T& t) { return t.Limit(1, {{INT_MIN, 1}}); },                                0, "support this tag[-2147483648]"},
    {"LimitHighestTag",       [](T& t) { return t.Limit(1, {{INT_MAX, INT_MAX}}); },                          0, "support this tag[2147483647]"},
    {"LimitLowestClient",     [](T& t) { return t.Limits(INT_MIN, 2, kTags, kValues); },                     -1, kSilent},
    {"LimitHighestClient",    [](T& t) { return t.Limits(INT_MAX, 2, kTags, kValues); },                     -1, kSilent},
    {"LimitNobody",           [](T& t) { return t.Limits(0, INT_MAX, nullptr, nullptr); },                    0, kSilent},
    {"GetNull",               [](T& t) { return t.Adapter().DoPerfGetConfig(2, nullptr, nullptr); },          0, kRequest},
    {"GetHugeCount",          [](T& t) { return t.Get(INT_MAX, {1, 7}); },                                   10, kRequest},
    {"GetTagsAtTheEnds",      [](T& t) { return t.Get(2, {INT_MIN, INT_MAX}); },                             10, "invalid tag value: 2147483647 !"},
    {"StatusNull",            [](T& t) { return t.CallSlot(kSlotEventStatus, nullptr); },                    -1, kNull},
    {"TagValueNullOutputs",   [](T& t) { return t.Adapter().GetPerfTagValue(*t.Pairs({1, 2}, 1), 0, nullptr, nullptr); }, -1, kSilent},
    {"TagValueNullAction",    [](T& t) { return t.TagValue(nullptr); },                                      -1, kNull},
    {"TagValueNegative",      [](T& t) { return t.TagValue(t.Pairs({7, 5}, -1).get()); },                     0, kSilent},
    {"TagValueShortList",     [](T& t) { return t.TagValue(t.Pairs({1, 2}, INT_MAX).get()); },               -1, kList},
    {"ChipTypeNull",          [](T& t) { return t.CallSlot(kSlotChipType, kNoAction, nullptr); },            -1, kNull},
    {"SchedLevelNull",        [](T& t) { return t.Adapter().DoSchedLevelAction(INT_MIN, INT_MAX, nullptr, nullptr); }, 0, kSilent},
    {"AffinityAtTheEnds",     [](T& t) { return t.Adapter().DoProbeAffinity(UINT_MAX, INT_MIN); },            0, kSilent},
    {"BoostAtTheEnds",        [](T& t) { return t.BoostAtTheEnds(); },                                        1, kSilent},
    {"SaveNullAction",        [](T& t) { return t.Saved(nullptr, true, true); },                             -7, kNull},
    {"SaveNullDuration",      [](T& t) { return t.Saved(t.Pairs({1, 2}, 1).get(), false, true); },           -7, kNull},
    {"SaveNullLength",        [](T& t) { return t.Saved(t.Pairs({1, 2}, 1).get(), true, false); },           -7, kNull},
    {"SaveNegativeLength",    [](T& t) { return t.Saved(t.Pairs({1, 2}, 1).get(), true, true, INT_MIN); },   -7, "SavePerfVal invalid request"},
    {"SaveNullList",          [](T& t) { return t.SavedToNull(); },                                           2, "SavePerfVal invalid request"},
    {"InterNull",             [](T& t) { return t.DoInter(nullptr); },                                       -1, kNull},
    {"InterShortList",        [](T& t) { return t.InterOf(INT_MAX, {"go_hispeed_load_l", "85"}); },          -1, "invalid scene list cmdId is 4353"},
    {"InterLongStrings",      [](T& t) { return t.InterOf(2, {std::string(kLong, 'x'), "1", "go_hispeed_load_l", std::string(kLong, '9')}); }, -1, "WriteNodesValue open"},
    {"CacheAtTheEnds",        [](T& t) { return t.CacheAtTheEnds(); },                                        0, kSilent},
    {"ManagerNull",           [](T& t) { return t.Call<void*>("GetFreqManager", nullptr) != nullptr; },       0, kNull},
    {"DumpNull",              [](T& t) { return t.Dump(); },                                                  0, kNull},
    {"InterElementNull",      [](T& t) { return t.Inter(nullptr) != nullptr; },                               0, kNull},
    {"InterElementUneven",    [](T& t) { RawXmlData e; e.cmdId = 4353; e.keys = {"hispeed_freq_l"}; t.Delete(static_cast<Action*>(t.Inter(&e))); return 1; }, 1, kXml},
    {"ElementLacksAValue",    [](T& t) { return t.Loaded("boost", {"duration_ms", "sched_boost"}, {"5"}); },  1, kXml},
    {"ElementLacksAKey",      [](T& t) { return t.Loaded("boost", {"duration_ms"}, {"5", "1"}); },            1, kXml},
    {"ClustersLackAValue",    [](T& t) { return t.Loaded("qcom_cpu_info", {"isolation", "big_cpu_num"}, {"0"}); }, 0, kXml},
    {"ElementLongStrings",    [](T& t) { return t.Loaded(std::string(kLong, 'n'), {std::string(kLong, 'k')}, {"1"}); }, 0, kXml},
    {"ElementLongValue",      [](T& t) { return t.Loaded("boost", {"sched_boost"}, {std::string(kLong, '1') + "x"}); }, 0, "xml element is invalid"},
    {"DeleteNull",            [](T& t) { t.Delete(nullptr); return 0; },                                      0, kNull},
    {"DeleteCycle",           [](T& t) { const Cycle c(t); t.Delete(c.first.get()); return c.second->cmdId; }, 4353, kEndless},
};
// clang-format on

class BadCaller : public BadCallerTest, public testing::WithParamInterface<Attack> {};

TEST_P(BadCaller, IsRefusedAndChangesNothing) {
    Limit(2, {{57, 6}});  // a write would reach its node
    Forget();
    EXPECT_EQ(GetParam().run(*this), GetParam().result);
    if (GetParam().error != nullptr) {
        EXPECT_THAT(Log(kError), Contains(HasSubstr(GetParam().error)));
    } else {
        EXPECT_THAT(Log(kError), IsEmpty());
    }
    EXPECT_THAT(HalCalls(), IsEmpty());
    for (const auto& access : GetPhone().Events().All<lab::NodeAccess>()) {
        EXPECT_TRUE(access.kind == lab::NodeAccess::Kind::kRead || access.error != 0)
            << access.path;
    }
    // The next request is served as ever.
    EXPECT_EQ(Do(*MakeAction(4353, 10, {0x40C00000, 1})), 0);
    EXPECT_EQ(HalCalls().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Entries, BadCaller, testing::ValuesIn(kAttacks),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(BadCallerTest, NullHeadCostsItsCommandAlone) {
    Command good(4354);
    good.Element("boost", {{"duration_ms", "5"}, {"sched_boost", "1"}});
    std::map<int, RawXmlData*> heads{{4353, nullptr}, {4354, &good.Head()}};
    EXPECT_EQ(GetLibrary().ParseScenes(heads).size(), 1u);
    EXPECT_THAT(Log(kError), Contains(HasSubstr(kXml)));
}

// The names of the constructors end with what the standard library mangles.
#ifndef _LIBCPP_VERSION
class ActionConstructor : public BadCallerTest, public testing::WithParamInterface<int> {};

TEST_P(ActionConstructor, RefusesACountThatNoListHas) {
    const auto opcodes = Exported<void (*)(void*, int, std::string, int, int, int, int*)>(
        "_ZN10QcomActionC1EiNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEiiiPi");
    alignas(QcomAction) unsigned char storage[sizeof(QcomAction)];
    int pairs[] = {1, 2};
    EXPECT_THROW(opcodes(storage, 4353, std::string(kLong, 'n'), 10, -1, GetParam(), pairs),
                 std::length_error);
    EXPECT_THAT(Log(kError), Contains(HasSubstr(kList)));
}

INSTANTIATE_TEST_SUITE_P(Entries, ActionConstructor, testing::Values(INT_MIN, -1, INT_MAX));

TEST_F(BadCallerTest, ActionOfANullListHasNoPairs) {
    const auto opcodes = Exported<void (*)(void*, int, std::string, int, int, int, int*)>(
        "_ZN10QcomActionC1EiNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEiiiPi");
    alignas(QcomAction) unsigned char storage[sizeof(QcomAction)];
    opcodes(storage, 4353, "boost", 10, -1, 2, nullptr);
    auto* const action = reinterpret_cast<QcomAction*>(storage);
    EXPECT_THAT(Log(kError), Contains(HasSubstr("tarquel: action list is NULL, cmdId is 4353")));
    EXPECT_EQ(Do(*action), -1);
    EXPECT_THAT(HalCalls(), IsEmpty());
    action->~QcomAction();
}
#endif

}  // namespace

#include "lab/ask/vocabulary_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "lab/names/resource_names.h"
#include "lab/names/table.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_values.h"
#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"
#include "nodes/inter_path_table.h"

namespace lab {
namespace {

namespace keys = tarquel::keys;

// The perf HAL's ranges: an opcode's upper ten bits.
struct Family {
    uint32_t range;
    std::string_view name;
};
constexpr uint32_t kRangeMask = 0xFFC00000;

// clang-format off
constexpr auto kFamilies = std::to_array<Family>({
    {0x40400000, "low-power modes"},
    {0x40800000, "CPU frequency"},
    {0x40C00000, "scheduler"},
    {0x41000000, "cores"},
    {0x41400000, "governor"},
    {0x41800000, "LLCC bandwidth"},
    {0x42800000, "GPU"},
    {0x42C00000, "memory and tasks"},
    {0x43000000, "DDR bandwidth"},
    {0x43400000, "memory latency"},
    {0x43C00000, "clusters of unlike capacity"},
    {0x44000000, "frame-aware scheduling"},
    {0x44400000, "task groups"},
    {0x44800000, "power and thermal"},
    {0x44C00000, "storage"},
    {0x45000000, "task placement"},
    {0x00000000, "outside the HAL's ranges"},
});

constexpr auto kElementKeys = std::to_array<PlainKey>({
    {keys::kDuration,        "ms",    "how long; first of all. 0 or no such key: until released. Negative: never runs"},
    {keys::kBoostLimitLevel, "digits", "decimal for 0ABCD00E in hexadecimal: boost levels under thermal level 1 to 4 (A to D), the highest thermal level under which it boosts (E)"},
    {keys::kOffDelayTime,    "",      "kept with the action for the server"},
    {keys::kOffDelayPerc,    "",      "kept with the action for the server"},
    {keys::kBoostCountLimit, "times", "how often the command breaks through in a period"},
    {keys::kBoostPeriod,     "ms",    "that period"},
});

constexpr auto kCpuInfoKeys = std::to_array<PlainKey>({
    {keys::kLittleCpus, "first-last", "CPUs of the little cluster"},
    {keys::kBigCpus,    "first-last", "CPUs of the cluster above it"},
    {keys::kPrimeCpus,  "first-last", "CPUs of the third cluster; makes it a device with three"},
    {keys::kIsolation,  "0 or 1",     "0: limits on online cores are refused"},
});

constexpr auto kLevelKeys = std::to_array<PlainKey>({
    {keys::kLittleMaxFreq, "kHz", "little cluster's ceiling during a breakthrough"},
    {keys::kBigMaxFreq,    "kHz", "big cluster's ceiling during a breakthrough"},
    {keys::kPrimeMaxFreq,  "kHz", "prime cluster's ceiling during a breakthrough"},
});
// clang-format on

std::string_view FamilyOf(int opcode) {
    const uint32_t range = static_cast<uint32_t>(opcode) & kRangeMask;
    for (const Family& family : kFamilies) {
        if (family.range == range) return family.name;
    }
    return "unknown";
}

std::optional<int> OtherBusOpcode(const tarquel::OpcodeName& row) {
    if (row.name == tarquel::kOnlyInBusLayout1) return std::nullopt;
    for (const tarquel::OpcodeName& other : tarquel::kOtherBusLayoutNames) {
        if (other.name == row.name) return other.opcode;
    }
    return row.opcode;
}

PlainKey InteractiveKey(std::string_view key) {
    for (const PlainKey& row : kElementKeys) {
        if (row.key == key) return row;
    }
    const char* path = tarquel::FindInterPath(key);
    return {key, "", path ? std::string_view(path) : "names no node"};
}

std::optional<int> TagIn(int tag) {
    return tag == tarquel::kNoTag ? std::nullopt : std::optional(tag);
}

// What the other bus layout has in place of the opcode; nothing where it is the same.
std::string OtherText(const TunableKey& row) {
    if (!row.otherBusOpcode) return "no such key";
    return *row.otherBusOpcode == row.opcode ? "" : Hex(*row.otherBusOpcode);
}

std::string TagText(std::optional<int> tag) {
    return tag ? std::to_string(*tag) : "-";
}

Table TunableTable(const VocabularyList& list, std::string_view family, bool isMarkdown) {
    Table table({"key", "opcode", "other bus layout", "value", "in a lock"});
    for (const TunableKey& row : list.tunables) {
        if (row.family != family) continue;
        const std::string key(row.key);
        const bool isSame = row.unit == row.lockUnit;
        table.Add({isMarkdown ? Code(key) : key,
                   isMarkdown ? Code(Hex(row.opcode)) : Hex(row.opcode), OtherText(row),
                   std::string(UnitName(row.unit)),
                   isSame ? "" : std::string(UnitName(row.lockUnit))});
    }
    return table;
}

Table PlainTable(const std::vector<PlainKey>& rows, const std::string& meaning, bool isMarkdown) {
    Table table({"key", "value", meaning});
    for (const PlainKey& row : rows) {
        const std::string key(row.key);
        table.Add({isMarkdown ? Code(key) : key, std::string(row.unit), std::string(row.meaning)});
    }
    return table;
}

Table LongSceneTable(const VocabularyList& list, bool isMarkdown) {
    Table table({"key", "value", "tag, two clusters", "tag, three clusters"});
    for (const LongSceneKey& row : list.longScene) {
        const std::string key(row.key);
        table.Add({isMarkdown ? Code(key) : key, std::string(UnitName(row.unit)),
                   TagText(row.tagTwoClusters), TagText(row.tagThreeClusters)});
    }
    return table;
}

// Every section with its heading, in order.
template <typename Show>
void ForEachSection(const VocabularyList& list, bool isMarkdown, Show show) {
    for (const Family& family : kFamilies) {
        show(fmt::format("Tunables: {}", family.name), TunableTable(list, family.name, isMarkdown));
    }
    show("Keys of every element", PlainTable(list.element, "meaning", isMarkdown));
    show(fmt::format("Keys of <{}>", keys::kCpuInfo),
         PlainTable(list.cpuInfo, "meaning", isMarkdown));
    show(fmt::format("Keys of <{}N>", keys::kFreqLevelInfo),
         PlainTable(list.level, "meaning", isMarkdown));
    show("Keys of an interactive-governor element",
         PlainTable(list.interactive, "node or meaning", isMarkdown));
    show("Keys of a long scene", LongSceneTable(list, isMarkdown));
}

nlohmann::json PlainJson(const std::vector<PlainKey>& rows) {
    nlohmann::json json = nlohmann::json::array();
    for (const PlainKey& row : rows) {
        json.push_back({{"key", row.key}, {"value", row.unit}, {"meaning", row.meaning}});
    }
    return json;
}

}  // namespace

VocabularyList ListVocabulary() {
    VocabularyList list;
    for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) {
        const Unit lockUnit = ResourceOf(row.opcode, Layout::kThreeClusters).unit;
        list.tunables.push_back({row.name, row.opcode, OtherBusOpcode(row), FamilyOf(row.opcode),
                                 tarquel::IsFrequencyOpcode(row.opcode) ? Unit::kKhz : lockUnit,
                                 lockUnit});
    }
    list.element.assign(kElementKeys.begin(), kElementKeys.end());
    list.cpuInfo.assign(kCpuInfoKeys.begin(), kCpuInfoKeys.end());
    list.level.assign(kLevelKeys.begin(), kLevelKeys.end());
    for (std::string_view key : tarquel::kInteractiveKeys) {
        list.interactive.push_back(InteractiveKey(key));
    }
    for (const tarquel::TagName& row : tarquel::kTagNames) {
        const TagFacts* facts = FindTagFacts(row.tagThreeClusters, Layout::kThreeClusters);
        list.longScene.push_back({row.name, TagIn(row.tagTwoClusters), TagIn(row.tagThreeClusters),
                                  facts ? facts->unit : Unit::kNone});
    }
    return list;
}

void PrintVocabulary(std::ostream& out, const VocabularyList& list, const Paint& paint) {
    bool isFirst = true;
    ForEachSection(list, false, [&](const std::string& heading, const Table& table) {
        out << (isFirst ? "" : "\n") << paint(Colour::kCyan, heading) << "\n";
        table.Print(out, "  ", paint);
        isFirst = false;
    });
}

void PrintVocabularyPage(std::ostream& out, const VocabularyList& list) {
    out << "# Vocabulary of scene files\n\n"
           "Made by `tarquel-lab vocabulary --markdown` from the loader's tables; `./dev docs` "
           "writes it anew.\n"
        << fmt::format(
               "The {} tunables stand by the perf HAL's families, then the keys that describe an "
               "element or\nthe device. \"Other bus layout\" is the opcode with the older bus "
               "monitors where it differs, \"in a\nlock\" the unit that the perf HAL gets where it "
               "differs. How a file is made of them is in\n[scene-files.md](scene-files.md).\n",
               list.tunables.size());
    ForEachSection(list, true, [&](const std::string& heading, const Table& table) {
        std::string title = heading;
        for (const auto& [sign, text] : {std::pair('<', "`<"), std::pair('>', ">`")}) {
            if (const size_t at = title.find(sign); at != title.npos) title.replace(at, 1, text);
        }
        out << "\n## " << title << "\n\n";
        table.PrintMarkdown(out);
    });
}

std::string VocabularyJson(const VocabularyList& list) {
    nlohmann::json json = {
        {"tunables", nlohmann::json::array()},        {"element", PlainJson(list.element)},
        {"cpu_info", PlainJson(list.cpuInfo)},        {"level", PlainJson(list.level)},
        {"interactive", PlainJson(list.interactive)}, {"long_scene", nlohmann::json::array()}};
    for (const TunableKey& row : list.tunables) {
        nlohmann::json entry = {{"key", row.key},
                                {"opcode", Hex(row.opcode)},
                                {"other_bus_opcode", nullptr},
                                {"family", row.family},
                                {"unit", UnitName(row.unit)},
                                {"lock_unit", UnitName(row.lockUnit)}};
        if (row.otherBusOpcode) entry["other_bus_opcode"] = Hex(*row.otherBusOpcode);
        json["tunables"].push_back(std::move(entry));
    }
    for (const LongSceneKey& row : list.longScene) {
        nlohmann::json entry = {{"key", row.key},
                                {"unit", UnitName(row.unit)},
                                {"tag_two_clusters", nullptr},
                                {"tag_three_clusters", nullptr}};
        if (row.tagTwoClusters) entry["tag_two_clusters"] = *row.tagTwoClusters;
        if (row.tagThreeClusters) entry["tag_three_clusters"] = *row.tagThreeClusters;
        json["long_scene"].push_back(std::move(entry));
    }
    return json.dump(2);
}

}  // namespace lab

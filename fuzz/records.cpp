#include "fuzz/records.h"

#include <array>
#include <climits>
#include <string_view>

#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"

namespace fuzz {
namespace {

namespace keys = tarquel::keys;

constexpr auto kElementNames = std::to_array<std::string_view>({
    "boost",
    keys::kCpuInfo,
    "freq_level_info1",
    "freq_level_info9",
    "freq_level_info10",
    "freq_level_info-1",
    "freq_level_info",
    "freq_level_info99999999999999999999",
    "",
});

// The loader tells commands apart by these ids and their neighbours.
constexpr auto kCommandIds =
    std::to_array<int>({0, 1, 4098, 4224, 4225, 4352, 4353, 5378, 5379, 12287, 12288, 13267, 13568,
                        13569, -1, INT_MAX, INT_MIN});

constexpr auto kHeadKeys = std::to_array<std::string_view>(
    {keys::kDuration, keys::kBoostLimitLevel, keys::kOffDelayTime, keys::kOffDelayPerc,
     keys::kBoostCountLimit, keys::kBoostPeriod});

constexpr auto kDescriptionKeys = std::to_array<std::string_view>(
    {keys::kPrimeCpus, keys::kBigCpus, keys::kLittleCpus, keys::kIsolation, keys::kLittleMaxFreq,
     keys::kBigMaxFreq, keys::kPrimeMaxFreq});

constexpr auto kValues = std::to_array<std::string_view>({
    "0",
    "1",
    "-1",
    "",
    "-",
    "--1",
    "999",
    "1000",
    "1440000",
    "65534999",
    "65535000",
    "2147483647",
    "2147483648",
    "-2147483648",
    "99999999999999999999",
    "19087364",
    "268435455",
    "0x10",
    " 1",
    "1 ",
    "0-3",
    "4-6",
    "7-7",
    "3-0",
    "0-2147483647",
    "-5--1",
    "0-",
    "-2147483648-2147483647",
    "2000000000-2000000200",
});

std::string DrawText(Source& source) {
    const size_t length = source.Chance(2) ? 100'000 : source.Below(24);
    std::string text(length, 'x');
    for (size_t i = 0; i < length && !source.IsEmpty(); ++i) {
        text[i] = static_cast<char>(source.Byte());
    }
    return text;
}

std::string DrawKey(Source& source) {
    switch (source.Below(6)) {
        case 0:
            return std::string(source.Pick(kHeadKeys));
        case 1:
            return std::string(source.Pick(tarquel::kOpcodeNames).name);
        case 2:
            return std::string(source.Pick(tarquel::kTagNames).name);
        case 3:
            return std::string(source.Pick(kDescriptionKeys));
        case 4:
            return std::string(source.Pick(tarquel::kInteractiveKeys));
        default:
            return DrawText(source);
    }
}

std::string DrawValue(Source& source) {
    switch (source.Below(4)) {
        case 0:
            return std::to_string(source.Between(0, 4000));
        case 1:
            return std::to_string(source.Int());
        case 2:
            return std::string(source.Pick(kValues));
        default:
            return DrawText(source);
    }
}

}  // namespace

Records::Records(Source& source) {
    while (!source.IsEmpty() && mRecords.size() < kMost) DrawCommand(source);
}

void Records::DrawCommand(Source& source) {
    const int cmdId = source.Chance(80) ? source.Pick(kCommandIds) : source.Int();
    if (source.Chance(3)) {
        mHeads[cmdId] = nullptr;
        return;
    }
    RawXmlData& head = *mRecords.emplace_back(std::make_unique<RawXmlData>());
    mHeads[cmdId] = &head;
    head.cmdId = cmdId;
    if (source.Chance(20)) head.headValue0 = source.Int();
    std::vector<RawXmlData*> chain;
    const size_t length = source.Below(5);
    for (size_t i = 0; i < length; ++i) {
        chain.push_back(&DrawElement(source, source.Chance(95) ? cmdId : source.Int()));
        (i == 0 ? head : *chain[i - 1]).next = chain[i];
    }
    // A chain that leads back into itself, or into another command's.
    if (chain.empty() || !source.Chance(10)) return;
    chain.back()->next = source.Chance(70) ? source.Pick(chain) : source.Pick(mRecords).get();
}

RawXmlData& Records::DrawElement(Source& source, int cmdId) {
    RawXmlData& element = *mRecords.emplace_back(std::make_unique<RawXmlData>());
    element.cmdId = cmdId;
    element.name = source.Chance(5) ? DrawText(source) : std::string(source.Pick(kElementNames));
    if (source.Chance(20)) element.stateMask = source.Int();
    element.skip = source.Chance(5) ? source.Byte() : uint8_t{0};
    element.taskBoost = source.Chance(5) ? source.Byte() : uint8_t{0};
    // More pairs than the loader takes, now and then.
    const size_t pairs = source.Chance(4) ? 30 + source.Below(20) : source.Below(6);
    for (size_t i = 0; i < pairs; ++i) {
        element.keys.push_back(DrawKey(source));
        element.values.push_back(DrawValue(source));
    }
    if (source.Chance(4)) element.keys.push_back(DrawKey(source));
    if (source.Chance(4)) element.values.push_back(DrawValue(source));
    return element;
}

std::string Records::Fixed() const {
    std::string text;
    const auto add = [&text](const std::string& part) { text.append(part).push_back('\0'); };
    for (const auto& record : mRecords) {
        add(record->name);
        for (const std::string& key : record->keys) add(key);
        for (const std::string& value : record->values) add(value);
        for (const int number :
             {record->cmdId, record->headValue0, record->headValue1, record->headValue2,
              record->stateMask, int{record->skip}, int{record->taskBoost}}) {
            add(std::to_string(number));
        }
        add(std::to_string(reinterpret_cast<uintptr_t>(record->next)));
    }
    return text;
}

}  // namespace fuzz

#include <utils/String8.h>

#include <array>

#include "base/ids.h"
#include "base/null_argument.h"
#include "freq/freq_manager.h"

using namespace tarquel;

namespace {

// Of the tags of kConfigSet, in its order; 22 characters each.
// clang-format off
constexpr auto kLabels = std::to_array<const char*>({
    "little cpu max,       ",
    "middle cpu max,       ",
    "big cpu max,          ",
    "gpu max,              ",
    "ipa switch temp,      ",
    "ipa sustainable power,",
});
// clang-format on
static_assert(kLabels.size() == kConfigSet.size());

}  // namespace

void QcomFreqManager::DumpFreqList(android::String8& out) {
    if (IsNullArgument(&out, "DumpFreqList")) return;
    out.appendFormat("PG set freq is:\n");
    PrintFreqList(Table(kClientPower), out);
    out.appendFormat("TC set freq is:\n");
    PrintFreqList(Table(kClientTemp), out);
    out.appendFormat("EAPA set freq is:\n");
    PrintFreqList(Table(kClientEapa), out);
}

void QcomFreqManager::PrintFreqList(const LimitTable& table, android::String8& out) {
    for (size_t i = 0; i < kLabels.size(); ++i) {
        out.appendFormat("tag=%s value=%d\n", kLabels[i], table.Get(kConfigSet[i]));
    }
}

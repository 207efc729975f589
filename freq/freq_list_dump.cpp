#include <utils/String8.h>

#include <array>

#include "base/bad_caller.h"
#include "base/client_ids.h"
#include "freq/freq_manager.h"

using namespace tarquel;

namespace {

struct DumpLine {
    int tag;
    const char* label;  // 22 characters
};

// clang-format off
constexpr auto kDumpLines = std::to_array<DumpLine>({
    {1,  "little cpu max,       "},
    {4,  "middle cpu max,       "},
    {7,  "big cpu max,          "},
    {10, "gpu max,              "},
    {40, "ipa switch temp,      "},
    {41, "ipa sustainable power,"},
});
// clang-format on

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
    for (const DumpLine& line : kDumpLines) {
        out.appendFormat("tag=%s value=%d\n", line.label, table.Get(line.tag));
    }
}

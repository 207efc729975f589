#include "base/trace.h"

#include <cutils/trace.h>

#include <cstring>

#include "tarquel/securec.h"

extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();

namespace tarquel {

namespace {

bool IsTagEnabled() {
    constexpr uint64_t kTagBit0 = 1;
    return (atrace_get_enabled_tags() & kTagBit0) != 0;
}

}  // namespace

bool Tracer::TarquelAtraceBegin(const char* name, unsigned long /*length*/) const {
    if (!IsOn() || !IsTagEnabled()) return false;
    atrace_begin_body(name);
    return true;
}

void Tracer::TarquelAtraceEnd() const {
    atrace_end_body();
}

bool FormatPerfList(std::span<const int> list, TextBuffer& text) {
    constexpr char kHead[] = "list=";
    std::memcpy(text.data(), kHead, sizeof(kHead));
    size_t used = sizeof(kHead) - 1;
    for (size_t i = 0; i + 1 < list.size(); i += 2) {
        TextBuffer piece;
        const int written = snprintf_s(piece.data(), piece.size(), piece.size() - 1, "0x%0X %d ",
                                       static_cast<unsigned>(list[i]), list[i + 1]);
        if (written < 0) return false;
        const auto length = static_cast<size_t>(written);
        if (used + length >= text.size()) return false;
        std::memcpy(text.data() + used, piece.data(), length + 1);
        used += length;
    }
    return true;
}

}  // namespace tarquel

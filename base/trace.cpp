#include "base/trace.h"

#include <cutils/trace.h>

#include <cstring>

#include "base/log.h"

extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();

namespace tarquel {

namespace {

// "list=" and "0xOPCODE VALUE " for every pair. False when a piece does not fit.
bool FormatPerfList(std::span<const int> list, TextBuffer& text) {
    constexpr char kHead[] = "list=";
    std::memcpy(text.data(), kHead, sizeof(kHead));
    size_t used = sizeof(kHead) - 1;
    for (size_t i = 0; i + 1 < list.size(); i += 2) {
        TextBuffer piece;
        if (!TARQUEL_FORMAT(piece, "0x%0X %d ", static_cast<unsigned>(list[i]), list[i + 1])) {
            return false;
        }
        const size_t length = std::strlen(piece.data());
        if (used + length >= text.size()) return false;
        std::memcpy(text.data() + used, piece.data(), length + 1);
        used += length;
    }
    return true;
}

}  // namespace

TraceSection::~TraceSection() {
    if (mIsOpen) atrace_end_body();
}

void TraceSection::Begin() {
    constexpr uint64_t kTagBit0 = 1;
    if (!mIsWanted || (atrace_get_enabled_tags() & kTagBit0) == 0) return;
    atrace_begin_body(mName.data());
    mIsOpen = true;
}

void TraceSection::BeginWithList(const char* caller, int durationMs, std::span<const int> list) {
    if (!mIsWanted) return;
    TextBuffer listText;
    if (!FormatPerfList(list, listText)) {
        TARQUEL_LOGE("tarQuel: %s snprintf_s trace_arg_buf error\n", caller);
        return;
    }
    if (!TARQUEL_FORMAT(mName, "%s duration=%d, len=%d, %s", caller, durationMs,
                        static_cast<int>(list.size()), listText.data())) {
        TARQUEL_LOGE("tarQuel: %s snprintf_s trace_buf error\n", caller);
        return;
    }
    Begin();
}

}  // namespace tarquel

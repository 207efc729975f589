// atrace sections around requests and HAL calls.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "base/debug_switches.h"
#include "tarquel/securec.h"

namespace tarquel {

// Room for one formatted text, terminator included.
inline constexpr size_t kTextMax = 512;
using TextBuffer = std::array<char, kTextMax>;

// Formats into a TextBuffer. False when the text does not fit or cannot be formatted.
#define TARQUEL_FORMAT(buffer, ...) \
    (snprintf_s((buffer).data(), (buffer).size(), (buffer).size() - 1, __VA_ARGS__) >= 0)

// One section, open from Begin until it is destroyed, whatever the switches say by then.
class TraceSection {
  public:
    explicit TraceSection(const DebugSwitches& switches) : mIsWanted(switches.IsVerbose()) {}
    ~TraceSection();
    TraceSection(const TraceSection&) = delete;
    TraceSection& operator=(const TraceSection&) = delete;

    // True when a debug switch was on as the section was made: else a name is not worth formatting.
    bool IsWanted() const { return mIsWanted; }

    // Where its name goes; empty until then.
    TextBuffer& Name() {
        mName[0] = '\0';
        return mName;
    }

    // Opens the section, unless it is not wanted or atrace's tag bit 0 is clear.
    void Begin();

    // Opens it under the name "CALLER duration=..., len=..., list=OPCODE VALUE ...". Without a
    // section, and with a line in the log, when that does not fit.
    void BeginWithList(const char* caller, int durationMs, std::span<const int> list);

  private:
    const bool mIsWanted;
    bool mIsOpen = false;
    TextBuffer mName;  // left as it is until it is needed
};

}  // namespace tarquel

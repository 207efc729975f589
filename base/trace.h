// atrace sections around requests and HAL calls.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "base/adapter_state.h"

namespace tarquel {

// Room for one formatted text, terminator included.
inline constexpr size_t kTextMax = 512;
using TextBuffer = std::array<char, kTextMax>;

class Tracer {
  public:
    explicit Tracer(const DebugSwitches& switches) : mSwitches(switches) {}

    // True while section names are worth formatting: a debug switch is on.
    bool IsOn() const { return mSwitches.IsVerbose(); }

    // Opens a section called `name`, unless the switches are off or atrace's tag bit 0 is clear.
    // Returns true when it did: that section is to be closed, whatever the switches say by then.
    bool TarquelAtraceBegin(const char* name, unsigned long length) const;

    // Closes the innermost section.
    void TarquelAtraceEnd() const;

  private:
    const DebugSwitches& mSwitches;
};

// Writes "list=" and "0xOPCODE VALUE " for every pair of `list` into `text`.
// Returns false, with `text` unusable, when a piece cannot be formatted or does not fit.
bool FormatPerfList(std::span<const int> list, TextBuffer& text);

}  // namespace tarquel

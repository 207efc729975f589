// The loader's vocabulary as it stands: which keys name opcodes and which name tags right now.
//
// The tables are constant; what changes while a configuration is read is which of them count.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarquel {

class Vocabulary {
  public:
    // The opcodes and tags that keys can name, at most.
    static constexpr size_t kMaxCodes = 258;

    // Puts the keys of the bus layout in force as names of opcodes.
    void OpcodeMapInit() { mOpcodesInForce = true; }

    // Puts the frequency opcodes in force.
    void OpcodeSetInit() { mFrequenciesInForce = true; }

    // Puts the keys of the cluster layout in force as names of tags. A later run with a prime
    // cluster rewrites what an earlier one without it gave.
    void TarquelOpcodeMapInit(bool hasPrimeCluster);

    // Takes names of opcodes and frequency opcodes out of force; names of tags stay.
    void Clear();

    // What a key names right now, in a constant table; null for a key that names nothing.
    const int32_t* FindOpcode(std::string_view key) const;
    const int32_t* FindTag(std::string_view key) const;

    // True for an opcode whose values are kHz in scene files and MHz in actions.
    bool IsFrequencyOpcode(int32_t opcode) const;

  private:
    enum class TagLayout { kNone, kTwoClusters, kThreeClusters };

    bool mOpcodesInForce = false;
    bool mFrequenciesInForce = false;
    TagLayout mTagLayout = TagLayout::kNone;
};

// True for a key that an interactive-governor element may have.
bool IsInteractiveKey(std::string_view key);

}  // namespace tarquel

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

    // Puts the keys of the cluster layout in force as names of tags. A later run with a prime
    // cluster rewrites what an earlier one without it gave.
    void TarquelOpcodeMapInit(bool hasPrimeCluster);

    // Takes the names of opcodes, which are in force from the beginning, out of it; those of tags
    // stay.
    void Clear() { mOpcodesInForce = false; }

    // What a key names right now, in a constant table; null for a key that names nothing.
    const int32_t* FindOpcode(std::string_view key) const;
    const int32_t* FindTag(std::string_view key) const;

  private:
    enum class TagLayout { kNone, kTwoClusters, kThreeClusters };

    bool mOpcodesInForce = true;
    TagLayout mTagLayout = TagLayout::kNone;
};

// True for a key that an interactive-governor element may have.
bool IsInteractiveKey(std::string_view key);

}  // namespace tarquel

// Finds names among the rows of a constant table: a hash table that the compiler fills. A look-up
// costs about the same for any table; it holds texts and no addresses, so nothing of it has to be
// relocated when the library is loaded.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "loader/word.h"

namespace tarquel {

namespace name_index {

// Looks at the first, the middle and the last eight characters: names of tunables differ there, and
// from eight characters on no loop varies with the name's length. The upper bits are the ones to
// use.
constexpr uint64_t Hash(std::string_view name) {
    constexpr uint64_t kOdd = 0x9E3779B97F4A7C15;
    const char* const text = name.data();
    const size_t size = name.size();
    uint64_t sum = 0;
    if (size < kWordBytes) {
        for (const char c : name) sum = sum * 256 + static_cast<unsigned char>(c);
    } else {
        sum = Word(text) + 3 * Word(text + size / 2 - kHalfWordBytes) +
              5 * Word(text + size - kWordBytes);
    }
    return sum * kOdd;
}

// True for two texts of one size with the same characters. The first, the middle and the last word
// overlap in a text of up to three words, as most names are: there they are all there is to
// compare.
constexpr bool AreSame(const char* one, const char* other, size_t size) {
    if (size < kWordBytes) return std::equal(one, one + size, other);
    const size_t middle = size / 2 - kHalfWordBytes;
    const size_t last = size - kWordBytes;
    if (((Word(one) ^ Word(other)) | (Word(one + middle) ^ Word(other + middle)) |
         (Word(one + last) ^ Word(other + last))) != 0) {
        return false;
    }
    if (size > 3 * kWordBytes) {
        for (size_t at = kWordBytes; at < last; at += kWordBytes) {
            if (Word(one + at) != Word(other + at)) return false;
        }
    }
    return true;
}

}  // namespace name_index

// The codes of a table's rows by their names: rows have a `name` of 56 characters at most and an
// `opcode`. A later row of a name is not found.
template <size_t RowCount>
class NameIndex {
  public:
    template <typename Row>
    explicit constexpr NameIndex(const std::array<Row, RowCount>& rows) {
        for (size_t i = 0; i < RowCount; ++i) {
            const std::string_view name = rows[i].name;
            mEntries[i].code = rows[i].opcode;
            mEntries[i].length = static_cast<uint8_t>(name.size());
            std::copy(name.begin(), name.end(), mEntries[i].text.data());
            size_t at = Begin(name);
            while (mSlots[at] != kFree) at = (at + 1) % kSlots;
            mSlots[at] = static_cast<uint8_t>(i);
        }
    }

    // Null when no row has this name.
    constexpr const int32_t* Find(std::string_view name) const {
        for (size_t at = Begin(name); mSlots[at] != kFree; at = (at + 1) % kSlots) {
            const Entry& entry = mEntries[mSlots[at]];
            if (entry.length == name.size() &&
                name_index::AreSame(name.data(), entry.text.data(), name.size())) {
                return &entry.code;
            }
        }
        return nullptr;
    }

  private:
    static constexpr size_t Begin(std::string_view name) {
        return static_cast<size_t>(name_index::Hash(name) >> (64 - kSlotBits));
    }

    // All that a look-up reads of a row, in one cache line.
    struct alignas(64) Entry {
        int32_t code = 0;
        uint8_t length = 0;
        std::array<char, 56> text{};
    };
    static_assert(sizeof(Entry) == 64);

    // Four slots for each row at least: nearly every name is found at the first one.
    static constexpr int kSlotBits = std::bit_width(4 * RowCount - 1);
    static constexpr size_t kSlots = size_t{1} << kSlotBits;
    static constexpr uint8_t kFree = 0xFF;
    static_assert(RowCount <= kFree);

    // The number of a row in each slot.
    std::array<uint8_t, kSlots> mSlots = [] {
        std::array<uint8_t, kSlots> slots{};
        slots.fill(kFree);
        return slots;
    }();
    std::array<Entry, RowCount> mEntries{};
};

}  // namespace tarquel

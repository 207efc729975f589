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

// The first, the middle and the last eight characters of a name: all of it when it is no longer
// than three words. They are read without a loop or branch that follows the name's length.
struct Sample {
    explicit constexpr Sample(std::string_view name) {
        const size_t size = name.size();
        if (size < kWordBytes) {
            for (const char c : name) first = first * 256 + static_cast<unsigned char>(c);
        } else {
            first = Word(name.data());
            middle = Word(name.data() + size / 2 - kWordBytes / 2);
            last = Word(name.data() + size - kWordBytes);
        }
    }

    // Names of tunables differ in their samples. The upper bits are the ones to use.
    constexpr uint64_t Hash() const {
        constexpr uint64_t kOdd = 0x9E3779B97F4A7C15;
        return (first + 3 * middle + 5 * last) * kOdd;
    }

    constexpr bool operator==(const Sample& other) const {
        return ((first ^ other.first) | (middle ^ other.middle) | (last ^ other.last)) == 0;
    }

    uint64_t first = 0;
    uint64_t middle = 0;
    uint64_t last = 0;
};

}  // namespace name_index

// The characters of all names of a table.
template <typename Rows>
constexpr size_t CountCharacters(const Rows& rows) {
    size_t count = 0;
    for (const auto& row : rows) count += row.name.size();
    return count;
}

// An index of rows that have a `name` of 255 characters at most. A later row of a name is not
// found.
template <size_t RowCount, size_t CharacterCount>
class NameIndex {
  public:
    template <typename Row>
    explicit constexpr NameIndex(const std::array<Row, RowCount>& rows) {
        size_t end = 0;
        for (size_t row = 0; row < RowCount; ++row) {
            const std::string_view name = rows[row].name;
            size_t at = Begin(name_index::Sample(name));
            while (mSlots[at].row != kFree) at = (at + 1) % kSlots;
            mSlots[at] = {static_cast<int16_t>(row), static_cast<uint16_t>(end),
                          static_cast<uint8_t>(name.size())};
            std::copy(name.begin(), name.end(), mText.data() + end);
            end += name.size();
        }
    }

    // The number of the row with this name, -1 when there is none.
    constexpr int Find(std::string_view name) const {
        const name_index::Sample sample(name);
        for (size_t at = Begin(sample);; at = (at + 1) % kSlots) {
            const Slot& slot = mSlots[at];
            if (slot.length == name.size()) {
                const std::string_view found(mText.data() + slot.text, name.size());
                if (sample == name_index::Sample(found) &&
                    (name.size() <= 3 * kWordBytes || name == found)) {
                    return slot.row;
                }
            }
            if (slot.row == kFree) return kFree;
        }
    }

  private:
    static constexpr size_t Begin(const name_index::Sample& sample) {
        return static_cast<size_t>(sample.Hash() >> (64 - kSlotBits));
    }

    static constexpr int16_t kFree = -1;
    struct Slot {
        int16_t row = kFree;
        uint16_t text = 0;  // where its name begins
        uint8_t length = 0;
    };

    // Four slots for each row at least: nearly every name is found at the first one.
    static constexpr int kSlotBits = std::bit_width(4 * RowCount - 1);
    static constexpr size_t kSlots = size_t{1} << kSlotBits;
    static_assert(RowCount <= INT16_MAX && CharacterCount <= UINT16_MAX);

    std::array<Slot, kSlots> mSlots{};
    std::array<char, CharacterCount> mText{};
};

}  // namespace tarquel

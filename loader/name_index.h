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
#include <utility>

namespace tarquel {

namespace name_index {

// Eight characters as a number, whatever the machine's byte order.
template <size_t... Is>
constexpr uint64_t Word(const char* text, std::index_sequence<Is...>) {
    return ((uint64_t{static_cast<unsigned char>(text[Is])} << (8 * Is)) | ...);
}

constexpr uint64_t Word(std::string_view text, size_t at) {
    return Word(text.data() + at, std::make_index_sequence<sizeof(uint64_t)>());
}

// Looks at the first, the middle and the last eight characters, without a loop whose length varies
// with the name: names of tunables differ there. The upper bits are the ones to use.
constexpr uint64_t Hash(std::string_view name) {
    constexpr uint64_t kOdd = 0x9E3779B97F4A7C15;
    constexpr size_t kWord = sizeof(uint64_t);
    const size_t size = name.size();
    uint64_t sum = size;
    if (size < kWord) {
        for (const char c : name) sum = sum * 256 + static_cast<unsigned char>(c);
    } else {
        sum += Word(name, 0) + 3 * Word(name, size / 2 - kWord / 2) + 5 * Word(name, size - kWord);
    }
    return sum * kOdd;
}

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
            size_t at = Begin(name);
            while (mSlots[at].row != kFree) at = (at + 1) % kSlots;
            mSlots[at] = {static_cast<int16_t>(row), static_cast<uint16_t>(end),
                          static_cast<uint8_t>(name.size())};
            std::copy(name.begin(), name.end(), mText.data() + end);
            end += name.size();
        }
    }

    // The number of the row with this name, -1 when there is none.
    constexpr int Find(std::string_view name) const {
        for (size_t at = Begin(name);; at = (at + 1) % kSlots) {
            const Slot& slot = mSlots[at];
            if (slot.row == kFree ||
                std::string_view(mText.data() + slot.text, slot.length) == name) {
                return slot.row;
            }
        }
    }

  private:
    static constexpr size_t Begin(std::string_view name) {
        return static_cast<size_t>(name_index::Hash(name) >> (64 - kSlotBits));
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

// Finds names among the rows of a constant table: a hash table that the compiler fills. It holds
// texts and no addresses, so nothing of it has to be relocated when the library is loaded.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarquel {

// The codes of a table's rows by their names: rows have a `name` of 43 characters at most and an
// `opcode`. A later row of a name is not found.
template <size_t RowCount>
class NameIndex {
  public:
    template <typename Row>
    explicit constexpr NameIndex(const std::array<Row, RowCount>& rows) {
        mSlots.fill(kFree);
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
            if (name == std::string_view(entry.text.data(), entry.length)) return &entry.code;
        }
        return nullptr;
    }

  private:
    struct Entry {
        int32_t code = 0;
        uint8_t length = 0;
        std::array<char, 43> text{};
    };

    // Four slots for each row at least: nearly every name is found at the first one.
    static constexpr size_t kSlots = std::bit_ceil(4 * RowCount);
    static constexpr uint8_t kFree = 0xFF;
    static_assert(RowCount <= kFree);

    // From five characters: names of tunables differ there.
    static constexpr size_t Begin(std::string_view name) {
        const size_t size = name.size();
        if (size == 0) return 0;
        size_t hash = size;
        for (const size_t at : {size_t{0}, size / 3, size * 2 / 3, size * 3 / 4, size - 1}) {
            hash = hash * 33 + static_cast<unsigned char>(name[at]);
        }
        return hash % kSlots;
    }

    std::array<uint8_t, kSlots> mSlots{};  // the number of a row in each
    std::array<Entry, RowCount> mEntries{};
};

}  // namespace tarquel

// Characters of a text, several at once, as one number: the first in its lowest byte, whatever the
// machine's byte order.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tarquel {

inline constexpr size_t kWordBytes = sizeof(uint64_t);
inline constexpr size_t kHalfWordBytes = sizeof(uint32_t);

// `Number` is an unsigned type.
template <typename Number>
constexpr Number CharactersAt(const char* text) {
    Number number = 0;
    if (std::is_constant_evaluated() || std::endian::native != std::endian::little) {
        for (size_t i = sizeof(Number); i-- > 0;) {
            number = static_cast<Number>(number << 8 | static_cast<unsigned char>(text[i]));
        }
    } else {
        std::memcpy(&number, text, sizeof(Number));
    }
    return number;
}

constexpr uint64_t Word(const char* text) {
    return CharactersAt<uint64_t>(text);
}

constexpr uint32_t HalfWord(const char* text) {
    return CharactersAt<uint32_t>(text);
}

}  // namespace tarquel

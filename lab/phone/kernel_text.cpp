#include "lab/phone/kernel_text.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace lab {

namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kBlanks = " \t\n\v\f\r\xa0";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

char Lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// 0 to 35, or 36 for what is no digit of any base.
unsigned DigitOf(char c) {
    if (IsDigit(c)) return static_cast<unsigned>(c - '0');
    const char letter = Lower(c);
    return letter >= 'a' && letter <= 'z' ? static_cast<unsigned>(letter - 'a') + 10 : 36;
}

// Takes digits of `base` off the front. `overflowed` says that the number lost its upper part.
uint64_t TakeDigits(std::string_view& text, unsigned base, bool& overflowed) {
    uint64_t number = 0;
    while (!text.empty() && DigitOf(text[0]) < base) {
        uint64_t next = 0;
        overflowed |= __builtin_mul_overflow(number, uint64_t{base}, &next);
        overflowed |= __builtin_add_overflow(next, uint64_t{DigitOf(text[0])}, &number);
        text.remove_prefix(1);
    }
    return number;
}

// The base that a number's beginning tells, which is taken off for a hexadecimal one.
unsigned TakeRadix(std::string_view& text) {
    if (text.empty() || text[0] != '0') return 10;
    const bool isHex = text.size() > 2 && Lower(text[1]) == 'x' && DigitOf(text[2]) < 16;
    if (isHex) text.remove_prefix(2);
    return isHex ? 16 : 8;
}

// Takes the kernel's sscanf %lld off the front.
std::optional<int64_t> TakeSigned(std::string_view& text) {
    std::string_view rest = text;
    TakeBlanks(rest);
    const bool isNegative = rest.starts_with('-');
    if (isNegative) rest.remove_prefix(1);
    if (rest.empty() || !IsDigit(rest[0])) return std::nullopt;
    bool overflowed = false;
    const uint64_t number = TakeDigits(rest, 10, overflowed);
    text = rest;
    return static_cast<int64_t>(isNegative ? -number : number);
}

}  // namespace

void TakeBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

std::optional<uint64_t> ScanNumber(std::string_view text) {
    TakeBlanks(text);
    if (text.empty() || !IsDigit(text[0])) return std::nullopt;
    bool overflowed = false;
    return TakeDigits(text, 10, overflowed);
}

std::optional<int64_t> ParseWholeNumber(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    if (text.starts_with('+')) text.remove_prefix(1);
    if (text.empty() || text.find_first_not_of(kDigits) != std::string::npos) return std::nullopt;
    bool overflowed = false;
    const uint64_t number = TakeDigits(text, 10, overflowed);
    if (overflowed || number > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    return static_cast<int64_t>(number);
}

std::optional<bool> ParseBool(std::string_view text, bool knowsTrueAndFalse) {
    const char first = text.empty() ? '\0' : Lower(text[0]);
    const char second = text.size() < 2 ? '\0' : Lower(text[1]);
    if (first == '1' || first == 'y' || (first == 'o' && second == 'n')) return true;
    if (first == '0' || first == 'n' || (first == 'o' && second == 'f')) return false;
    if (knowsTrueAndFalse && first == 't') return true;
    if (knowsTrueAndFalse && first == 'f') return false;
    return std::nullopt;
}

std::optional<int64_t> TakeSysctlNumber(std::string_view& text) {
    constexpr size_t kLongest = 20;  // what the kernel looks at
    TakeBlanks(text);
    std::string_view rest = text;
    const bool isNegative = rest.size() > 1 && rest[0] == '-';
    if (isNegative) rest.remove_prefix(1);
    if (rest.empty() || !IsDigit(rest[0])) return std::nullopt;
    const unsigned base = TakeRadix(rest);
    bool overflowed = false;
    const uint64_t number = TakeDigits(rest, base, overflowed);
    const bool ends = rest.empty() || rest[0] == ' ' || rest[0] == '\t' || rest[0] == '\n';
    if (overflowed || !ends || text.size() - rest.size() > kLongest) return std::nullopt;
    constexpr uint64_t kMost = std::numeric_limits<int32_t>::max();
    if (number > (isNegative ? kMost + 1 : kMost)) return std::nullopt;
    text = rest;
    return isNegative ? -static_cast<int64_t>(number) : static_cast<int64_t>(number);
}

std::optional<int64_t> ParseHundredths(std::string_view text) {
    constexpr size_t kDecimals = 2;
    const std::optional<int64_t> whole = TakeSigned(text);
    if (!whole) return std::nullopt;
    // Unsigned, so that what is too long wraps as in the kernel.
    uint64_t hundredths = static_cast<uint64_t>(*whole) * 100;
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        const size_t before = text.size();
        const int64_t fraction = TakeSigned(text).value_or(0);
        if (fraction < 0) return std::nullopt;
        const size_t length = before - text.size();
        uint64_t scale = 1;
        for (size_t i = std::min(length, kDecimals); i < std::max(length, kDecimals); ++i) {
            scale *= 10;
        }
        const auto digits = static_cast<uint64_t>(fraction);
        if (length <= kDecimals) hundredths += digits * scale;
        // The kernel divides by 32 bits of it.
        const auto divisor = static_cast<uint32_t>(scale);
        if (length > kDecimals && divisor != 0) hundredths += (digits + scale / 2) / divisor;
    }
    return static_cast<int64_t>(hundredths);
}

}  // namespace lab

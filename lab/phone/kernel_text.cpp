#include "lab/phone/kernel_text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>

namespace lab {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r\xa0";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

char Lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// Takes digits off the front. What is too long for 64 bits loses its upper part.
uint64_t TakeDigits(std::string_view& text) {
    uint64_t number = 0;
    for (; !text.empty() && IsDigit(text[0]); text.remove_prefix(1)) {
        number = number * 10 + static_cast<uint64_t>(text[0] - '0');
    }
    return number;
}

// Takes a number of `base` off the front. None: no digit, or more than 64 bits.
std::optional<uint64_t> TakeInBase(std::string_view& text, int base) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return number;
}

// The base that a number's beginning tells, which is taken off for a hexadecimal one.
int TakeRadix(std::string_view& text) {
    if (text.empty() || text[0] != '0') return 10;
    const bool isHex = text.size() > 2 && Lower(text[1]) == 'x' &&
                       std::isxdigit(static_cast<unsigned char>(text[2])) != 0;
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
    const uint64_t number = TakeDigits(rest);
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
    return TakeDigits(text);
}

std::optional<int64_t> ParseWholeNumber(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    if (text.starts_with('+')) text.remove_prefix(1);
    const std::optional<uint64_t> number = TakeInBase(text, 10);
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    if (!number || !text.empty() || *number > kMost) return std::nullopt;
    return static_cast<int64_t>(*number);
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
    const int base = TakeRadix(rest);
    const std::optional<uint64_t> number = TakeInBase(rest, base);
    const bool ends = rest.empty() || rest[0] == ' ' || rest[0] == '\t' || rest[0] == '\n';
    if (!number || !ends || text.size() - rest.size() > kLongest) return std::nullopt;
    constexpr uint64_t kMost = std::numeric_limits<int32_t>::max();
    if (*number > (isNegative ? kMost + 1 : kMost)) return std::nullopt;
    text = rest;
    const auto magnitude = static_cast<int64_t>(*number);
    return isNegative ? -magnitude : magnitude;
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

// How the kernel reads the texts that are written to its nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lab {

// The kernel's sscanf with %lu: blanks, then the number with which the text goes on, whatever
// follows it. What is too long for 64 bits loses its upper part. None: no number.
std::optional<uint64_t> ScanNumber(std::string_view text);

// Its kstrtouint: the whole text, an ending newline apart, is an unsigned 32-bit number.
std::optional<int64_t> ParseWholeNumber(std::string_view text);

// Its kstrtobool: the first letter decides, the second after an "o".
std::optional<bool> ParseBool(std::string_view text, bool knowsTrueAndFalse);

// Takes the next number of a sysctl's text off its front, with the blanks before it: decimal, octal
// or hexadecimal as in C, with a blank or nothing behind it. None: something else stands there, or
// no int.
std::optional<int64_t> TakeSysctlNumber(std::string_view& text);

// Takes the blanks off the front.
void TakeBlanks(std::string_view& text);

// Its cgroup_parse_float with two decimals: hundredths, rounded; what follows the number does not
// count. None: no number.
std::optional<int64_t> ParseHundredths(std::string_view text);

}  // namespace lab

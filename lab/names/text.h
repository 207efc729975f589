// Small text helpers that the readers and reports of the lab share.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// The whole of `text` as a number, decimal or 0x..., with an optional minus sign.
std::optional<int64_t> ParseNumber(const std::string& text);

// " (did you mean 'big_max'?)" when one of `known` is close to `word`, else nothing.
std::string DidYouMean(const std::string& word, const std::vector<std::string>& known);

// A moment in seconds with thousandths, "5.120"; a span in whole milliseconds.
std::string SecondsText(std::chrono::nanoseconds time);
int64_t WholeMs(std::chrono::nanoseconds time);

// A log line as it is shown.
std::string WithoutNewline(std::string text);

// "a, b, c".
std::string Join(const std::vector<std::string>& words);

// `text` with `with` in place of every `what`.
std::string ReplacedAll(std::string text, const std::string& what, const std::string& with);

// The beginning of what may be too long to be quoted in a message.
std::string Shortened(const std::string& text);

// "1 lock", "2 locks".
std::string Counted(size_t count, const std::string& noun);

// An opcode as reports write it, "0x40800000".
std::string Hex(int opcode);

// True for a line of the plug-in's log that is an error by priority and no sign of a fault: "tag N
// is not registerd! ...", which every tag says that holds no lock before it gets one: at its first
// limit, and at each one after its limit was lifted.
inline bool IsUsualLine(std::string_view line) {
    return line.find("is not registerd!") != std::string_view::npos;
}

// True for 0 to 9, whatever the locale.
inline bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

}  // namespace lab

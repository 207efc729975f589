#include "lab/scenes/scene_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "lab/yaml/input_text.h"

namespace lab {
namespace {

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// How many bytes the character at `offset` has, 0 for what is no UTF-8: a stray or missing
// continuation, a form longer than need be, half of a surrogate pair, a number beyond Unicode.
size_t Utf8Length(const std::string& text, size_t offset) {
    const auto byte = [&](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byte(offset);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || offset + length > text.size()) return 0;
    for (size_t i = 1; i < length; ++i) {
        if (!IsContinuation(text[offset + i])) return 0;
    }
    const unsigned char second = byte(offset + 1);
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
    return length;
}

bool IsForbiddenControl(char letter) {
    const auto code = static_cast<unsigned char>(letter);
    return code < 0x20 && letter != '\t' && letter != '\n' && letter != '\r';
}

// The encoding with 16 bits a character that the text's beginning shows, or null.
const char* WideEncoding(const std::string& text) {
    const std::string_view start(text.data(), std::min<size_t>(text.size(), 2));
    if (start == "\xFF\xFE" || start == std::string_view("<\0", 2)) return "UTF-16, little-endian";
    if (start == "\xFE\xFF" || start == std::string_view("\0<", 2)) return "UTF-16, big-endian";
    return nullptr;
}

// A kind of bad byte: the first one and how many there are.
struct BadBytes {
    std::optional<size_t> first;
    size_t count = 0;

    void Add(size_t offset) {
        if (!first) first = offset;
        ++count;
    }
    std::string Others() const {
        return count > 1 ? fmt::format(", and {} more in this file", count - 1) : "";
    }
};

}  // namespace

LineTable::LineTable(const std::string& text) : mText(text), mLineStarts{0} {
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
        mLineStarts.push_back(at + 1);
    }
}

Place LineTable::At(size_t offset) const {
    offset = std::min(offset, mText.size());
    const auto next = std::upper_bound(mLineStarts.begin(), mLineStarts.end(), offset);
    size_t start = *(next - 1);
    if (start == 0 && mText.starts_with(kUtf8Mark)) start = std::min(offset, kUtf8Mark.size());
    const auto letters = std::count_if(mText.begin() + static_cast<ptrdiff_t>(start),
                                       mText.begin() + static_cast<ptrdiff_t>(offset),
                                       [](char byte) { return !IsContinuation(byte); });
    return {static_cast<int>(next - mLineStarts.begin()), static_cast<int>(letters) + 1};
}

std::string ReadSceneText(const std::string& file) {
    return ReadInput(file, "this scene file ");
}

std::vector<SceneProblem> FindTextProblems(const std::string& text, const LineTable& lines) {
    std::vector<SceneProblem> problems;
    const auto report = [&](size_t offset, const std::string& message) {
        problems.push_back({lines.At(offset), message, "encoding"});
    };
    if (const char* encoding = WideEncoding(text)) {
        report(0, fmt::format("this text is {}; a scene file is UTF-8: save it as such", encoding));
        return problems;
    }
    BadBytes controls;
    BadBytes noUtf8;
    for (size_t offset = 0; offset < text.size();) {
        if (IsForbiddenControl(text[offset])) controls.Add(offset);
        const size_t length = Utf8Length(text, offset);
        if (length == 0) noUtf8.Add(offset);
        offset += std::max<size_t>(length, 1);
    }
    if (controls.first) {
        report(*controls.first,
               fmt::format("a control character (0x{:02X}) stands here{}; XML has none: remove it",
                           static_cast<unsigned char>(text[*controls.first]), controls.Others()));
    }
    if (noUtf8.first) {
        report(*noUtf8.first,
               fmt::format("the byte 0x{:02X} is no UTF-8{}; save the file as UTF-8",
                           static_cast<unsigned char>(text[*noUtf8.first]), noUtf8.Others()));
    }
    return problems;
}

}  // namespace lab

// The text of a scene file before it is XML: where each byte stands, and whether it is text at all.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// What may stand before a text to tell its encoding.
inline constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// Where something stands in a file; both 1-based, columns in characters. Line 0: nowhere in
// particular.
struct Place {
    int line = 0;
    int column = 0;

    auto operator<=>(const Place&) const = default;
};

// What is wrong with a scene file, and where. The rule is a short name to look up or to filter by.
struct SceneProblem {
    Place place;
    std::string message;
    std::string rule = {};
};

// Answers for any byte of a text in which line and column it stands, also in a large one.
class LineTable {
  public:
    // Keeps a reference to `text`.
    explicit LineTable(const std::string& text);

    // The place of the byte at `offset`, that of the end for one beyond it.
    Place At(size_t offset) const;

  private:
    const std::string& mText;
    std::vector<size_t> mLineStarts;
};

// The whole of a file. Throws InputError when it cannot be read; an empty file can be.
std::string ReadSceneText(const std::string& file);

// What keeps `text` from being the UTF-8 text of an XML document: another encoding, bytes that are
// no UTF-8, control characters. The first place of each kind, with the number of the others.
std::vector<SceneProblem> FindTextProblems(const std::string& text, const LineTable& lines);

}  // namespace lab

// A YAML document as a tree whose every node knows its line and column, so that a mistake in a
// profile or scenario can be named where it stands.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace lab {

// A file that cannot be used: what() reads "FILE:LINE:COLUMN: what is wrong and what to do".
// Line and column are 1-based; both 0 ("FILE: ...") when the fault has no place in the file.
class InputError : public std::runtime_error {
  public:
    InputError(const std::string& file, int line, int column, const std::string& message);

    const std::string file;
    const int line;
    const int column;
};

class YamlNode {
  public:
    enum class Kind { kNull, kScalar, kList, kMap };
    struct Field;

    Kind kind = Kind::kNull;
    std::shared_ptr<const std::string> file;  // shared by all nodes of a file; null: of none
    int line = 0;
    int column = 0;
    std::string scalar;           // kScalar
    std::vector<YamlNode> items;  // kList
    std::vector<Field> fields;    // kMap, in document order

    // The file's name; empty for a node of none.
    const std::string& File() const;

    // The field called `key`, or null.
    const YamlNode* Find(const std::string& key) const;

    // As Find, but a missing field is an InputError that names it.
    const YamlNode& Get(const std::string& key) const;

    // The scalar as text or as a number (decimal or 0x...); anything else is an InputError that
    // says `what` was expected.
    const std::string& AsText(const std::string& what) const;
    int64_t AsInt(const std::string& what, int64_t low, int64_t high) const;
    bool AsBool(const std::string& what) const;
    const std::vector<YamlNode>& AsList(const std::string& what) const;

    // The fields of a map that has some; anything else is an InputError "expected ...".
    const std::vector<Field>& AsFilledMap(const std::string& expected) const;

    // The items of a list, or the node itself where it is none.
    std::span<const YamlNode> OneOrMore() const;

    // A map with no other fields than `allowed`; an unknown one is an InputError that lists them.
    void ExpectFields(const std::string& what, const std::vector<std::string>& allowed) const;

    [[noreturn]] void Fail(const std::string& message) const;
};

struct YamlNode::Field {
    YamlNode key;
    YamlNode value;
};

// Reads one document. Throws InputError for a file that cannot be read, is no YAML, repeats a key
// or holds more than one document.
YamlNode LoadYamlFile(const std::string& file);
YamlNode LoadYamlText(const std::string& text, const std::string& file);

}  // namespace lab

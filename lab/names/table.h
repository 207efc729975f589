// Rows in aligned columns for a reader, or as a Markdown table.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/names/paint.h"

namespace lab {

class Table {
  public:
    explicit Table(std::vector<std::string> headings) : mHeadings(std::move(headings)) {}

    // As many cells as there are headings.
    void Add(std::vector<std::string> cells) { mRows.push_back(std::move(cells)); }

    bool IsEmpty() const { return mRows.empty(); }

    // Each line begins with `indent`. A column in which no row has anything is left out.
    void Print(std::ostream& out, const std::string& indent, const Paint& paint) const;

    void PrintMarkdown(std::ostream& out) const;

  private:
    std::vector<std::string> mHeadings;
    std::vector<std::vector<std::string>> mRows;
};

// What is told of each entry of a listing: a field of its JSON, a column of its table, or both.
struct Field {
    const char* name;       // in JSON; null: it is not told there
    const char* heading;    // of the column; null: it has none
    bool isCode = false;    // in Markdown
    const char* none = "";  // what the table shows for null
};

// Entries of one kind, told once for a table, for Markdown and for JSON.
class Listing {
  public:
    explicit Listing(std::vector<Field> fields) : mFields(std::move(fields)) {}

    // A value for each field: text, a number or null; in JSON alone it may be anything.
    void Add(std::vector<nlohmann::json> values) { mRows.push_back(std::move(values)); }

    Table ForReader() const { return MakeTable(false); }
    Table ForMarkdown() const { return MakeTable(true); }

    // An array with an object for each entry.
    nlohmann::json ForJson() const;

  private:
    Table MakeTable(bool isMarkdown) const;

    std::vector<Field> mFields;
    std::vector<std::vector<nlohmann::json>> mRows;
};

template <typename Value>
nlohmann::json OrNull(const std::optional<Value>& value) {
    return value ? nlohmann::json(*value) : nlohmann::json();
}

// A document as every command prints it. What is no UTF-8 in a file may be quoted in it.
template <typename Json>
std::string JsonText(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace lab

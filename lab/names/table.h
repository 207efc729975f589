// Rows in aligned columns for a reader, or as a Markdown table.
#pragma once

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

// `text` as code in Markdown; nothing for nothing.
std::string Code(const std::string& text);

}  // namespace lab

#include "lab/names/table.h"

#include <algorithm>

#include "lab/names/text.h"

namespace lab {
namespace {

// Characters, not bytes: a UTF-8 text takes one column for each.
size_t Width(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

}  // namespace

void Table::Print(std::ostream& out, const std::string& indent, const Paint& paint) const {
    std::vector<size_t> widths(mHeadings.size(), 0);
    for (const auto& row : mRows) {
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    }
    for (size_t i = 0; i < widths.size(); ++i) {
        if (widths[i] > 0) widths[i] = std::max(widths[i], Width(mHeadings[i]));
    }
    const auto line = [&](const std::vector<std::string>& cells) {
        std::string text = indent;
        for (size_t i = 0; i < cells.size(); ++i) {
            if (widths[i] == 0) continue;
            text += cells[i] + std::string(widths[i] - Width(cells[i]) + 2, ' ');
        }
        text.resize(text.find_last_not_of(' ') + 1);
        return text;
    };
    out << paint(Colour::kBold, line(mHeadings)) << "\n";
    for (const auto& row : mRows) out << line(row) << "\n";
}

void Table::PrintMarkdown(std::ostream& out) const {
    const auto line = [&out](const std::vector<std::string>& cells) {
        out << "|";
        for (const std::string& cell : cells) {
            out << (cell.empty() ? " " : " " + ReplacedAll(cell, "|", "\\|") + " ") << "|";
        }
        out << "\n";
    };
    line(mHeadings);
    out << "|";
    for (size_t i = 0; i < mHeadings.size(); ++i) out << "---|";
    out << "\n";
    for (const auto& row : mRows) line(row);
}

Table Listing::MakeTable(bool isMarkdown) const {
    std::vector<std::string> headings;
    for (const Field& field : mFields) {
        if (field.heading) headings.emplace_back(field.heading);
    }
    Table table(headings);
    for (const std::vector<nlohmann::json>& row : mRows) {
        std::vector<std::string> cells;
        for (size_t i = 0; i < mFields.size(); ++i) {
            if (!mFields[i].heading) continue;
            std::string cell = row[i].is_null()     ? mFields[i].none
                               : row[i].is_string() ? row[i].get<std::string>()
                                                    : row[i].dump();
            const bool isCode = isMarkdown && mFields[i].isCode && !cell.empty();
            cells.push_back(isCode ? "`" + cell + "`" : std::move(cell));
        }
        table.Add(std::move(cells));
    }
    return table;
}

nlohmann::json Listing::ForJson() const {
    nlohmann::json json = nlohmann::json::array();
    for (const std::vector<nlohmann::json>& row : mRows) {
        nlohmann::json& entry = json.emplace_back(nlohmann::json::object());
        for (size_t i = 0; i < mFields.size(); ++i) {
            if (mFields[i].name) entry[mFields[i].name] = row[i];
        }
    }
    return json;
}

}  // namespace lab

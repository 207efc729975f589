#include "lab/names/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <numeric>
#include <string_view>

namespace lab {
namespace {

// How many letters are added, left out, replaced or swapped with their neighbour; `limit` for as
// many or more. `rows` are for its use.
size_t EditDistance(std::string_view a, std::string_view b, size_t limit,
                    std::array<std::vector<size_t>, 3>& rows) {
    if (a.size() >= b.size() + limit || b.size() >= a.size() + limit) return limit;
    auto& [before, last, row] = rows;  // before: the row before the last
    for (std::vector<size_t>& each : rows) each.resize(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    size_t leastOfLast = 0;
    for (size_t i = 1; i <= a.size(); ++i) {
        before.swap(last);
        last.swap(row);
        size_t least = row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
            least = std::min(least, row[j]);
        }
        if (least >= limit && leastOfLast + 1 >= limit) return limit;
        leastOfLast = least;
    }
    return std::min(row[b.size()], limit);
}

}  // namespace

std::optional<int64_t> ParseNumber(const std::string& text) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    const bool negative = begin != end && *begin == '-';
    if (negative) ++begin;
    int base = 10;
    if (end - begin > 2 && begin[0] == '0' && (begin[1] == 'x' || begin[1] == 'X')) {
        base = 16;
        begin += 2;
    }
    if (begin == end || *begin == '-') return std::nullopt;
    int64_t value = 0;
    const auto [stop, error] = std::from_chars(begin, end, value, base);
    if (error != std::errc() || stop != end) return std::nullopt;
    return negative ? -value : value;
}

std::string DidYouMean(const std::string& word, const std::vector<std::string>& known) {
    const std::string* best = nullptr;
    const size_t farthest = std::max<size_t>(word.size() / 3, 1) + 1;
    std::array<std::vector<size_t>, 3> rows;
    // What is far away is soon told from what is near: most slips are of one letter.
    for (size_t reach = 2; !best; reach *= 2) {
        size_t nearest = std::min(reach, farthest);
        for (const std::string& candidate : known) {
            // A name cut short counts as close too.
            const std::string_view start = std::string_view(candidate).substr(0, word.size());
            const size_t distance = std::min(EditDistance(word, candidate, nearest, rows),
                                             EditDistance(word, start, nearest - 1, rows) + 1);
            if (distance < nearest) {
                nearest = distance;
                best = &candidate;
            }
        }
        if (reach >= farthest) break;
    }
    return best ? " (did you mean '" + *best + "'?)" : "";
}

std::string SecondsText(std::chrono::nanoseconds time) {
    const int64_t ms = WholeMs(time);
    const std::string thousandths = std::to_string(1000 + ms % 1000);
    return std::to_string(ms / 1000) + "." + thousandths.substr(1);
}

int64_t WholeMs(std::chrono::nanoseconds time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

std::string WithoutNewline(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::string Join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string ReplacedAll(std::string text, const std::string& what, const std::string& with) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
        text.replace(at, what.size(), with);
    }
    return text;
}

std::string Shortened(const std::string& text) {
    constexpr size_t kMostShown = 40;
    return text.size() > kMostShown ? text.substr(0, kMostShown) + "..." : text;
}

std::string Hex(int opcode) {
    return fmt::format("0x{:08X}", static_cast<unsigned>(opcode));
}

std::string Counted(size_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace lab

#include "lab/ask/power_model.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "lab/names/text.h"
#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

constexpr char kForm[] =
    "a power file is a list of {cluster: big, mhz: 633.6, mw: 95}, or the same as CSV below the "
    "heading 'cluster,mhz,mw'; khz stands for mhz where you have kHz";
constexpr double kHighestMw = 1'000'000;
constexpr double kHighestKhz = 100'000'000;
constexpr double kKhzPerMhz = 1000;

// A line of the file.
struct Row {
    int line = 0;
    int column = 0;
    std::string cluster;
    double khz = 0;
    double mw = 0;
};

class Reader {
  public:
    explicit Reader(const std::string& file) : mFile(file) {}

    std::vector<Row> Read() {
        const std::string text = ReadInput(mFile, "this power file ");
        const std::string first = text.substr(0, text.find('\n'));
        const bool isCsv =
            first.find(',') != first.npos && first.find_first_of("{[:") == first.npos;
        return isCsv ? ReadCsv(text) : ReadYaml(text);
    }

  private:
    std::vector<Row> ReadYaml(const std::string& text) {
        std::vector<Row> rows;
        const YamlNode root = LoadYamlText(text, mFile);
        for (const YamlNode& item : root.AsList(kForm)) {
            item.ExpectFields("a row of a power file", {"cluster", "khz", "mhz", "mw"});
            const YamlNode* khz = item.Find("khz");
            const YamlNode* mhz = item.Find("mhz");
            if ((khz == nullptr) == (mhz == nullptr)) {
                item.Fail("needs one of khz and mhz");
            }
            Row row{item.line, item.column, item.Get("cluster").AsText("a cluster's name"), 0, 0};
            row.khz = khz ? Number(*khz, "kHz", kHighestKhz)
                          : Number(*mhz, "MHz", kHighestKhz / kKhzPerMhz) * kKhzPerMhz;
            row.mw = Number(item.Get("mw"), "mW", kHighestMw);
            rows.push_back(std::move(row));
        }
        return rows;
    }

    double Number(const YamlNode& node, const std::string& unit, double highest) const {
        return Number(node.AsText("a number of " + unit), unit, highest, node.line, node.column);
    }

    double Number(const std::string& text, const std::string& unit, double highest, int line,
                  int column) const {
        char* end = nullptr;
        const double number = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0' || !std::isfinite(number) || number < 0 ||
            number > highest) {
            throw InputError(
                mFile, line, column,
                fmt::format("'{}' is no number of {} from 0 to {:.0f}", text, unit, highest));
        }
        return number;
    }

    static std::vector<std::string> Cells(const std::string& line) {
        std::vector<std::string> cells;
        std::istringstream stream(line);
        for (std::string cell; std::getline(stream, cell, ',');) {
            const size_t first = cell.find_first_not_of(" \t\r");
            const size_t last = cell.find_last_not_of(" \t\r");
            cells.push_back(first == cell.npos ? "" : cell.substr(first, last - first + 1));
        }
        return cells;
    }

    std::vector<Row> ReadCsv(const std::string& text) const {
        std::istringstream lines(text);
        std::string line;
        std::getline(lines, line);
        const std::vector<std::string> headings = Cells(line);
        const bool isMhz = headings == std::vector<std::string>{"cluster", "mhz", "mw"};
        if (!isMhz && headings != std::vector<std::string>{"cluster", "khz", "mw"}) {
            throw InputError(mFile, 1, 1, kForm);
        }
        const double scale = isMhz ? kKhzPerMhz : 1;
        std::vector<Row> rows;
        for (int number = 2; std::getline(lines, line); ++number) {
            if (line.find_first_not_of(" \t\r") == line.npos) continue;
            const std::vector<std::string> cells = Cells(line);
            if (cells.size() != headings.size()) {
                throw InputError(mFile, number, 1,
                                 fmt::format("has {}, a row has 3: cluster, {}, mw",
                                             Counted(cells.size(), "cell"), headings[1]));
            }
            rows.push_back(
                {number, 1, cells[0],
                 Number(cells[1], isMhz ? "MHz" : "kHz", kHighestKhz / scale, number, 1) * scale,
                 Number(cells[2], "mW", kHighestMw, number, 1)});
        }
        return rows;
    }

    const std::string mFile;
};

}  // namespace

PowerModel PowerModel::Load(const std::string& file, const DeviceProfile& device) {
    std::map<std::string, int64_t> lowest;
    std::vector<std::string> names;
    for (const CpuCluster& cluster : device.clusters) {
        lowest[cluster.name] = cluster.khz.front();
        names.push_back(cluster.name);
    }
    if (!device.gpuMhz.empty()) {
        lowest["gpu"] = device.gpuMhz.back() * static_cast<int64_t>(kKhzPerMhz);
        names.emplace_back("gpu");
    }
    PowerModel model;
    model.mFile = file;
    for (const Row& row : Reader(file).Read()) {
        if (!lowest.count(row.cluster)) {
            throw InputError(file, row.line, row.column,
                             fmt::format("{} has no cluster '{}'{}; it has {}", device.name,
                                         row.cluster, DidYouMean(row.cluster, names), Join(names)));
        }
        const auto khz = static_cast<int64_t>(std::llround(row.khz));
        if (!model.mTables[row.cluster].emplace(khz, row.mw).second) {
            throw InputError(file, row.line, row.column,
                             fmt::format("{} at {} kHz is told twice", row.cluster, khz));
        }
    }
    if (model.mTables.empty()) throw InputError(file, 0, 0, kForm);
    for (const auto& [name, table] : model.mTables) {
        if (table.begin()->first <= lowest[name]) continue;
        throw InputError(file, 0, 0,
                         fmt::format("{} has no power at its lowest step, {} kHz, against which "
                                     "floors are counted",
                                     name, lowest[name]));
    }
    return model;
}

double PowerModel::PowerAt(const std::string& range, int64_t khz) const {
    const std::map<int64_t, double>& table = mTables.at(range);
    const auto above = table.lower_bound(khz);
    if (above == table.end()) {
        throw InputError(mFile, 0, 0,
                         fmt::format("{} has no power at {} kHz, and none above: a floor stood "
                                     "there",
                                     range, khz));
    }
    if (above->first == khz || above == table.begin()) return above->second;
    const auto below = std::prev(above);
    const double share =
        static_cast<double>(khz - below->first) / static_cast<double>(above->first - below->first);
    return below->second + share * (above->second - below->second);
}

}  // namespace lab

// What a run comes to, as text and as JSON.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <unordered_map>

#include "lab/ask/ask_text.h"
#include "lab/ask/run_stats.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

using Runs = std::vector<RunStats>;

constexpr size_t kMostRivals = 3;
constexpr double kPercent = 100;

constexpr char kModelText[] =
    "  A model: power at each floor in force less that at the lowest step, times how long, as if\n"
    "  the cluster sat at its floor and would sit at the lowest step without one.";

// "2.000 s 20.0 %".
std::string ShareText(Time time, Time length) {
    if (time == Time{}) return "-";
    const double share = length > Time{} ? kPercent * static_cast<double>(time.count()) /
                                               static_cast<double>(length.count())
                                         : 0;
    return fmt::format("{} s {:.1f} %", SecondsText(time), share);
}

std::string PartText(const RunStats::Part& part) {
    return fmt::format("{} {} s", part.name.empty() ? "nobody" : part.name, SecondsText(part.time));
}

std::string PartsText(const std::vector<RunStats::Part>& parts) {
    std::vector<std::string> told;
    for (const RunStats::Part& part : parts) {
        if (told.size() < kMostRivals) told.push_back(PartText(part));
    }
    if (parts.size() > told.size()) {
        told.push_back(fmt::format("{} more", parts.size() - told.size()));
    }
    return Join(told);
}

std::string KhzText(const std::optional<int64_t>& khz) {
    return khz ? WithUnit(*khz, Unit::kKhz) : "not told";
}

// Names the run among several: "A", "B", ...
std::string Letter(size_t index, size_t count) {
    if (count == 1) return "";
    const char letter = static_cast<char>('A' + index % 26);
    return index < 26 ? std::string(1, letter)
                      : std::string(1, letter) + std::to_string(index / 26);
}

std::string Heading(const std::string& text, size_t index, size_t count) {
    const std::string letter = Letter(index, count);
    return letter.empty() ? text : text + " " + letter;
}

// The names that any run has, in the order of the first that has each.
template <typename Entry>
std::vector<std::string> NamesOf(const Runs& runs, std::vector<Entry> RunStats::*entries) {
    std::vector<std::string> names;
    std::set<std::string> known;
    for (const RunStats& run : runs) {
        for (const Entry& entry : run.*entries) {
            if (known.insert(entry.name).second) names.push_back(entry.name);
        }
    }
    return names;
}

template <typename Entry>
const Entry* FindNamed(const std::vector<Entry>& entries, const std::string& name) {
    for (const Entry& entry : entries) {
        if (entry.name == name) return &entry;
    }
    return nullptr;
}

// Under each of `groups` a column for each run.
void AddHeadings(const std::vector<std::string>& groups, size_t runs,
                 std::vector<std::string>& headings) {
    for (const std::string& group : groups) {
        for (size_t i = 0; i < runs; ++i) headings.push_back(Heading(group, i, runs));
    }
}

void PrintNames(std::ostream& out, const std::string& heading,
                const std::vector<std::string>& names) {
    if (!names.empty()) out << "  " << heading << ": " << Join(names) << "\n";
}

void PrintRequesters(std::ostream& out, const Runs& runs, const Paint& paint) {
    std::vector<std::string> headings = {"who"};
    AddHeadings({"asked", "held", "counted", "lost to"}, runs.size(), headings);
    Table table(headings);
    using Who = RunStats::Requester;
    // There may be tens of thousands.
    std::unordered_map<std::string, std::vector<const Who*>> ofRuns;
    for (size_t i = 0; i < runs.size(); ++i) {
        for (const Who& who : runs[i].requesters) {
            ofRuns.try_emplace(who.name, runs.size()).first->second[i] = &who;
        }
    }
    for (const std::string& name : NamesOf(runs, &RunStats::requesters)) {
        std::vector<std::string> cells = {name};
        const auto addGroup = [&](const char* none, const auto& textOf) {
            for (size_t i = 0; i < runs.size(); ++i) {
                const Who* who = ofRuns[name][i];
                cells.push_back(who ? textOf(*who, runs[i].at) : none);
            }
        };
        addGroup("-", [](const Who& who, Time) { return std::to_string(who.asked); });
        addGroup("-", [](const Who& who, Time length) { return ShareText(who.held, length); });
        addGroup("-", [](const Who& who, Time length) { return ShareText(who.won, length); });
        addGroup("", [](const Who& who, Time) { return PartsText(who.lostTo); });
        table.Add(std::move(cells));
    }
    if (!table.IsEmpty()) {
        table.Print(out, "  ", paint);
    } else {
        out << "  Nobody asked for anything.\n";
    }
    for (size_t i = 0; i < runs.size(); ++i) {
        PrintNames(out, Heading("never counted", i, runs.size()), runs[i].NeverWon());
    }
}

using Values = std::vector<RunStats::Value>;

const RunStats::Value* FindValue(const Values& values, const std::optional<int64_t>& khz) {
    for (const RunStats::Value& value : values) {
        if (value.khz == khz) return &value;
    }
    return nullptr;
}

void AddValues(const Runs& runs, const std::string& name, const char* bound,
               Values RunStats::Range::*values, Table& table) {
    std::set<std::optional<int64_t>> steps;
    for (const RunStats& run : runs) {
        const RunStats::Range* range = FindNamed(run.ranges, name);
        if (!range) continue;
        for (const RunStats::Value& value : range->*values) steps.insert(value.khz);
    }
    for (const std::optional<int64_t>& step : steps) {
        std::vector<std::string> cells = {name, bound, KhzText(step)};
        std::vector<std::string> by;
        for (const RunStats& run : runs) {
            const RunStats::Range* range = FindNamed(run.ranges, name);
            const RunStats::Value* found = range ? FindValue(range->*values, step) : nullptr;
            cells.push_back(found ? ShareText(found->time, run.at) : "-");
            by.push_back(found ? PartsText(found->by) : "");
        }
        cells.insert(cells.end(), by.begin(), by.end());
        table.Add(std::move(cells));
    }
}

void PrintRanges(std::ostream& out, const Runs& runs, const Paint& paint) {
    std::vector<std::string> headings = {"", "", "at"};
    AddHeadings({"for", "by"}, runs.size(), headings);
    Table table(headings);
    for (const std::string& name : NamesOf(runs, &RunStats::ranges)) {
        AddValues(runs, name, "floor", &RunStats::Range::floors, table);
        AddValues(runs, name, "ceiling", &RunStats::Range::ceilings, table);
    }
    table.Print(out, "  ", paint);
    for (size_t i = 0; i < runs.size(); ++i) {
        std::vector<std::string> capped;
        for (const RunStats::Range& range : runs[i].ranges) {
            if (range.capped == Time{}) continue;
            capped.push_back(range.name + " " + ShareText(range.capped, runs[i].at));
        }
        PrintNames(out, Heading("capped by thermal", i, runs.size()), capped);
    }
}

void PrintHolds(std::ostream& out, const Runs& runs, size_t most, const Paint& paint) {
    if (most == 0) return;
    Table table({"", "longest holds", "for", "since", "until", "of"});
    for (size_t i = 0; i < runs.size(); ++i) {
        const RunStats& run = runs[i];
        for (size_t h = 0; h < std::min(most, run.holds.size()); ++h) {
            const LockHold& hold = run.holds[h];
            std::string until = hold.isHeld ? "held at the end" : TimeText(run.times, hold.end);
            if (!hold.doubt.empty()) until += "; not sure: " + hold.doubt;
            table.Add(
                {Letter(i, runs.size()), hold.who,
                 (hold.isEarlier ? "at least " : "") + SecondsText(hold.end - hold.since) + " s",
                 hold.isEarlier ? "before the capture" : TimeText(run.times, hold.since), until,
                 hold.what});
        }
    }
    if (table.IsEmpty()) return;
    out << "\n";
    table.Print(out, "  ", paint);
}

void PrintCosts(std::ostream& out, const Runs& runs, const PowerModel& model, const Paint& paint) {
    std::vector<std::string> headings = {"floors cost"};
    AddHeadings({"against no floor"}, runs.size(), headings);
    for (size_t i = 1; i < runs.size(); ++i) headings.push_back(Letter(i, runs.size()) + " - A");
    Table table(headings);
    const auto addRow = [&](const std::string& name, const std::vector<double>& values) {
        std::vector<std::string> cells = {name};
        for (const double value : values) cells.push_back(fmt::format("{:.3f} mWh", value));
        for (size_t i = 1; i < values.size(); ++i) {
            cells.push_back(fmt::format("{:+.3f} mWh", values[i] - values[0]));
        }
        table.Add(std::move(cells));
    };
    for (const std::string& name : NamesOf(runs, &RunStats::costs)) {
        std::vector<double> values;
        for (const RunStats& run : runs) {
            const RunStats::Cost* cost = FindNamed(run.costs, name);
            values.push_back(cost ? cost->milliwattHours : 0);
        }
        addRow(name, values);
    }
    std::vector<double> totals;
    std::vector<double> aDay;
    for (const RunStats& run : runs) {
        totals.push_back(TotalCost(run.costs));
        aDay.push_back(ADay(totals.back(), run.at));
    }
    addRow("together", totals);
    if (runs.size() > 1) addRow("as a day of it", aDay);
    out << "\n";
    table.Print(out, "  ", paint);
    for (const RunStats& run : runs) {
        for (const RunStats::Cost& cost : run.costs) {
            if (cost.unknown == Time{}) continue;
            out << fmt::format("  {}: the floor of {} is not told for {} s, which are left out\n",
                               run.name, cost.name, SecondsText(cost.unknown));
        }
    }
    out << paint(Colour::kDim, kModelText) << "\n  Numbers of " << model.File() << "\n";
}

// JSON.

nlohmann::json PartsJson(const std::vector<RunStats::Part>& parts) {
    nlohmann::json json = nlohmann::json::array();
    for (const RunStats::Part& part : parts) {
        json.push_back({{"who", part.name.empty() ? nlohmann::json() : nlohmann::json(part.name)},
                        {"ms", WholeMs(part.time)}});
    }
    return json;
}

nlohmann::json ValuesJson(const Values& values) {
    nlohmann::json json = nlohmann::json::array();
    for (const RunStats::Value& value : values) {
        json.push_back(
            {{"khz", OrNull(value.khz)}, {"ms", WholeMs(value.time)}, {"by", PartsJson(value.by)}});
    }
    return json;
}

nlohmann::json HoldJson(const LockHold& hold) {
    nlohmann::json json = {{"who", hold.who},
                           {"what", hold.what},
                           {"ms", WholeMs(hold.end - hold.since)},
                           {"since_ms", WholeMs(hold.since)},
                           {"until_ms", WholeMs(hold.end)},
                           {"is_held", hold.isHeld},
                           {"certainty", hold.doubt.empty() ? "sure" : "doubtful"}};
    if (hold.isEarlier) json["since_ms"] = nullptr;
    if (!hold.doubt.empty()) json["doubt"] = hold.doubt;
    return json;
}

nlohmann::json RunJson(const RunStats& run, const PowerModel* model) {
    nlohmann::json json = {{"file", run.name},
                           {"title", run.isCapture ? "" : run.title},
                           {"device", run.device},
                           {"ms", WholeMs(run.at)},
                           {"is_whole", run.isWhole},
                           {"requesters", nlohmann::json::array()},
                           {"never_counted", run.NeverWon()},
                           {"ranges", nlohmann::json::array()},
                           {"holds", nlohmann::json::array()},
                           {"remarks", run.remarks}};
    for (const RunStats::Requester& who : run.requesters) {
        json["requesters"].push_back({{"who", who.name},
                                      {"asked", who.asked},
                                      {"held_ms", WholeMs(who.held)},
                                      {"counted_ms", WholeMs(who.won)},
                                      {"lost_to", PartsJson(who.lostTo)}});
    }
    for (const RunStats::Range& range : run.ranges) {
        json["ranges"].push_back({{"name", range.name},
                                  {"low_khz", range.lowKhz},
                                  {"high_khz", range.highKhz},
                                  {"floors", ValuesJson(range.floors)},
                                  {"ceilings", ValuesJson(range.ceilings)},
                                  {"capped_by_thermal_ms", WholeMs(range.capped)}});
    }
    for (const LockHold& hold : run.holds) json["holds"].push_back(HoldJson(hold));
    if (!model) return json;
    nlohmann::json cost = {{"is_model", true},
                           {"against", "no floor"},
                           {"numbers", model->File()},
                           {"ranges", nlohmann::json::array()}};
    for (const RunStats::Cost& range : run.costs) {
        cost["ranges"].push_back({{"name", range.name},
                                  {"mwh", range.milliwattHours},
                                  {"raised_ms", WholeMs(range.raised)},
                                  {"unknown_ms", WholeMs(range.unknown)}});
    }
    cost["mwh"] = TotalCost(run.costs);
    cost["mwh_a_day"] = ADay(TotalCost(run.costs), run.at);
    json["floors_cost"] = std::move(cost);
    return json;
}

}  // namespace

void PrintRunStats(std::ostream& out, const Runs& runs, const PowerModel* model, size_t mostHolds,
                   const Paint& paint) {
    for (size_t i = 0; i < runs.size(); ++i) {
        const RunStats& run = runs[i];
        const std::string letter = Letter(i, runs.size());
        out << paint(Colour::kBold,
                     fmt::format("{}{} on {}: {} s", letter.empty() ? "" : letter + "  ", run.name,
                                 run.device, SecondsText(run.at)))
            << "\n";
        if (!run.isCapture && run.title != run.name) out << "  " << run.title << "\n";
        if (!run.isWhole) {
            out << paint(Colour::kYellow,
                         "  This capture does not tell everything: times are of what it tells")
                << "\n";
        }
    }
    out << "\n";
    PrintRequesters(out, runs, paint);
    out << "\n";
    PrintRanges(out, runs, paint);
    PrintHolds(out, runs, mostHolds, paint);
    if (model) PrintCosts(out, runs, *model, paint);
}

std::string RunStatsJson(const Runs& runs, const PowerModel* model) {
    nlohmann::json json = {{"runs", nlohmann::json::array()}};
    for (const RunStats& run : runs) json["runs"].push_back(RunJson(run, model));
    return JsonText(json);
}

}  // namespace lab

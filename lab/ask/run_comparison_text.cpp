// What two runs do differently, as text and as JSON.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "lab/ask/ask_text.h"
#include "lab/ask/run_comparison.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

using Kind = RunDifference::Kind;

const char* NameOf(Kind kind) {
    static constexpr const char* kNames[] = {"device", "gone",  "new",    "result",
                                             "lock",   "value", "finding"};
    return kNames[static_cast<size_t>(kind)];
}

std::string OrNothing(const std::string& text) {
    return text.empty() ? "nothing" : text;
}

// "5.120 s (line 12)"; nothing where there is no moment.
std::string PlaceText(const Moments& times, const std::optional<RunRecord::Place>& place) {
    return place ? TimeText(times, place->at) + AtLine(place->line) : "";
}

std::string TimesText(const RunDifference& difference) {
    return difference.times > 1 ? fmt::format(", {} times", difference.times) : "";
}

}  // namespace

void PrintRunComparison(std::ostream& out, const RunComparison& comparison, const Paint& paint) {
    const std::string* request = nullptr;
    for (const RunDifference& difference : comparison.differences) {
        const std::string before = PlaceText(comparison.beforeTimes, difference.firstBefore);
        const std::string after = PlaceText(comparison.afterTimes, difference.firstAfter);
        if (difference.kind == Kind::kGone || difference.kind == Kind::kNew) {
            const bool isGone = difference.kind == Kind::kGone;
            out << paint(isGone ? Colour::kRed : Colour::kGreen,
                         fmt::format("{}: {}", isGone ? "gone" : "new", difference.request))
                << fmt::format(", at {}{}\n", isGone ? before : after, TimesText(difference));
            request = nullptr;
            continue;
        }
        if (!difference.request.empty() && (!request || *request != difference.request)) {
            out << paint(Colour::kYellow, difference.request)
                << fmt::format(", at {}\n", before == after ? before : before + " -> " + after);
        }
        request = difference.request.empty() ? nullptr : &difference.request;
        const std::string unit = difference.unit.empty() ? "" : " " + difference.unit;
        out << fmt::format("{}{}: {} -> {}{}{}\n", request ? "  " : "", difference.what,
                           OrNothing(difference.before), OrNothing(difference.after), unit,
                           TimesText(difference));
    }
    if (!comparison.isWhole) {
        out << "A capture does not tell everything: what it lacks may look like a difference.\n";
    }
    const std::string requests = Counted(comparison.same, "request");
    if (comparison.differences.empty()) {
        out << fmt::format("{} and {} do the same: {}\n", comparison.before, comparison.after,
                           requests);
    } else {
        out << fmt::format("{} to {}: {}; both make {}\n", comparison.before, comparison.after,
                           Counted(comparison.differences.size(), "difference"), requests);
    }
}

std::string RunComparisonJson(const RunComparison& comparison) {
    nlohmann::json json = {{"before", comparison.before},
                           {"after", comparison.after},
                           {"same", comparison.same},
                           {"is_whole", comparison.isWhole},
                           {"differences", nlohmann::json::array()}};
    const auto placeJson = [](const std::optional<RunRecord::Place>& place) {
        if (!place) return nlohmann::json();
        return nlohmann::json({{"at_ms", WholeMs(place->at)}, {"line", place->line}});
    };
    for (const RunDifference& difference : comparison.differences) {
        json["differences"].push_back({{"kind", NameOf(difference.kind)},
                                       {"request", difference.request},
                                       {"what", difference.what},
                                       {"before", difference.before},
                                       {"after", difference.after},
                                       {"unit", difference.unit},
                                       {"times", difference.times},
                                       {"first_before", placeJson(difference.firstBefore)},
                                       {"first_after", placeJson(difference.firstAfter)}});
    }
    return JsonText(json);
}

}  // namespace lab

// What the floors of a run cost by the user's own numbers.
#include "lab/ask/run_stats.h"

namespace lab {
namespace {

constexpr double kHoursADay = 24;

}  // namespace

std::vector<RunStats::Cost> FloorCosts(const RunStats& run, const PowerModel& model) {
    std::vector<RunStats::Cost> costs;
    for (const RunStats::Range& range : run.ranges) {
        if (!model.Has(range.name)) continue;
        RunStats::Cost cost;
        cost.name = range.name;
        const double lowest = model.PowerAt(range.name, range.lowKhz);
        for (const RunStats::Value& floor : range.floors) {
            if (!floor.khz) {
                cost.unknown += floor.time;
            } else if (*floor.khz > range.lowKhz) {
                const double hours =
                    std::chrono::duration<double, std::ratio<3600>>(floor.time).count();
                cost.raised += floor.time;
                cost.milliwattHours += (model.PowerAt(range.name, *floor.khz) - lowest) * hours;
            }
        }
        costs.push_back(std::move(cost));
    }
    return costs;
}

double TotalCost(const std::vector<RunStats::Cost>& costs) {
    double total = 0;
    for (const RunStats::Cost& cost : costs) total += cost.milliwattHours;
    return total;
}

double ADay(double milliwattHours, Time length) {
    const double hours = std::chrono::duration<double, std::ratio<3600>>(length).count();
    return hours > 0 ? milliwattHours / hours * kHoursADay : 0;
}

}  // namespace lab

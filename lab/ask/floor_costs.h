// What the floors of a run cost by the user's own numbers.
#pragma once

#include <string>
#include <vector>

#include "lab/ask/power_model.h"
#include "lab/ask/run_stats.h"

namespace lab {

// Those of the ranges that the model has. Throws InputError for a floor that it does not reach.
std::vector<RunStats::Cost> FloorCosts(const RunStats& run, const PowerModel& model);

double TotalCost(const std::vector<RunStats::Cost>& costs);

// Of a run as long as a day, that runs of unlike length can be compared.
double ADay(double milliwattHours, Time length);

}  // namespace lab

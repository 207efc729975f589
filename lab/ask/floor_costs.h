// What the floors of a run cost by the user's own numbers.
#pragma once

#include <string>
#include <vector>

#include "lab/ask/power_model.h"
#include "lab/ask/run_stats.h"

namespace lab {

// What the floors of one range cost above its lowest step.
struct FloorCost {
    std::string range;
    double milliwattHours = 0;
    Time raised{};   // that a floor stood above the lowest step
    Time unknown{};  // that nobody knows the floor
};

// Those of the ranges that the model has. Throws InputError for a floor that it does not reach.
std::vector<FloorCost> FloorCosts(const RunStats& run, const PowerModel& model);

double TotalCost(const std::vector<FloorCost>& costs);

// Of a run as long as a day, that runs of unlike length can be compared.
double ADay(double milliwattHours, Time length);

}  // namespace lab

#include "bench/results.h"

#include <fmt/format.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace bench {

namespace {

std::string TargetText(const Timing& timing) {
    const Target& target = timing.target;
    if (target.maxRatio > 0) return fmt::format("<= {:.2f}x", target.maxRatio);
    if (target.maxNsAboveFloor > 0) return fmt::format("<= +{:.0f} ns", target.maxNsAboveFloor);
    return "";
}

std::string Verdict(const Timing& timing) {
    if (!timing.HasTarget()) return "";
    return timing.MeetsTarget() ? "ok" : "MISSED";
}

}  // namespace

bool Timing::MeetsTarget() const {
    if (target.maxRatio > 0 && Ratio() > target.maxRatio) return false;
    return target.maxNsAboveFloor <= 0 || AboveFloor() <= target.maxNsAboveFloor;
}

void Print(const Results& results) {
    fmt::print("{}; nodes in {}\n", results.machine, results.nodesFolder);
    fmt::print(
        "CPU time of the fastest repetition, ns for each unit; the floor is from the same "
        "run.\n\n");
    constexpr auto kRow = "{:<50} {:>8} {:>10} {:>10} {:>9} {:>7}  {:<10} {:<6} {:>7}\n";
    fmt::print(kRow, "case", "unit", "measured", "floor", "above", "ratio", "target", "", "allocs");
    for (const Timing& timing : results.timings) {
        const bool hasFloor = timing.HasFloor();
        fmt::print(kRow, timing.name, timing.unit, fmt::format("{:.1f}", timing.ns),
                   hasFloor ? fmt::format("{:.1f}", timing.floorNs) : "",
                   hasFloor ? fmt::format("{:+.1f}", timing.AboveFloor()) : "",
                   hasFloor ? fmt::format("{:.2f}", timing.Ratio()) : "", TargetText(timing),
                   Verdict(timing),
                   timing.allocations < 0 ? "" : std::to_string(timing.allocations));
    }
    fmt::print("\n");
    for (const Fact& fact : results.facts) {
        const std::string target = fact.most < 0 ? "" : fmt::format("<= {}", fact.most);
        const char* const verdict = fact.most < 0 ? "" : fact.value <= fact.most ? "ok" : "MISSED";
        fmt::print("{:<50} {:>10} {:<12} {:<10} {}\n", fact.name, fact.value, fact.unit, target,
                   verdict);
    }
}

void WriteJson(const Results& results, const std::string& file) {
    nlohmann::ordered_json json;
    json["machine"] = results.machine;
    json["nodes_folder"] = results.nodesFolder;
    for (const Timing& timing : results.timings) {
        nlohmann::ordered_json row{{"name", timing.name},
                                   {"unit", timing.unit},
                                   {"ns", timing.ns},
                                   {"median_ns", timing.medianNs}};
        if (timing.HasFloor()) {
            row["floor_ns"] = timing.floorNs;
            row["floor_median_ns"] = timing.floorMedianNs;
            row["ratio"] = timing.Ratio();
        }
        if (timing.HasTarget()) row["meets_target"] = timing.MeetsTarget();
        if (timing.allocations >= 0) row["allocations"] = timing.allocations;
        json["timings"].push_back(std::move(row));
    }
    for (const Fact& fact : results.facts) {
        json["facts"].push_back({{"name", fact.name}, {"value", fact.value}, {"unit", fact.unit}});
    }
    std::ofstream out(file);
    out << json.dump(2) << '\n';
    if (!out.flush()) throw std::runtime_error("cannot write " + file);
}

}  // namespace bench

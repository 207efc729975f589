#include "lab/program/run_result.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "lab/names/table.h"
#include "lab/names/text.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

using Json = nlohmann::ordered_json;

const char* Verdict(ExitCode exit) {
    constexpr const char* kVerdicts[] = {"fine", "findings", "cannot run"};
    return kVerdicts[exit];
}

Colour ColourOf(ExitCode exit) {
    return exit == kFine ? Colour::kGreen : Colour::kRed;
}

Json JsonOf(const RunResult::HeldLock& lock) {
    Json asks = Json::array();
    for (const RunResult::Pair& pair : lock.pairs) {
        asks.push_back({{"opcode", fmt::format("0x{:08X}", static_cast<unsigned>(pair.opcode))},
                        {"value", pair.value},
                        {"text", pair.text},
                        {"limits_nothing", pair.isDefault}});
    }
    return {{"lock", lock.handle},
            {"left_ms", lock.leftMs ? Json(*lock.leftMs) : Json()},
            {"owner", lock.owner},
            {"holder", lock.holder},
            {"line", lock.line ? Json(lock.line) : Json()},
            {"asks", std::move(asks)}};
}

Json JsonOf(const RunResult& result) {
    Json json = {{"scenario", result.scenario},
                 {"exit_code", static_cast<int>(result.Exit())},
                 {"verdict", Verdict(result.Exit())}};
    if (result.error) {
        json["error"] = *result.error;
        return json;
    }
    Json held = Json::array();
    for (const RunResult::HeldLock& lock : result.held) held.push_back(JsonOf(lock));
    json["title"] = result.title;
    json["device"] = result.device;
    json["scenes"] = result.scenes;
    json["requests"] = result.requests;
    json["lasted_ms"] = result.lastedMs;
    json["problems"] = result.problems;
    json["locks_held"] = std::move(held);
    json["findings"] = Json::array();
    for (const RunFinding& finding : result.findings) json["findings"].push_back(finding.text);
    return json;
}

}  // namespace

ExitCode RunResult::Exit() const {
    if (error) return kCannotRun;
    return findings.empty() ? kFine : kFindings;
}

std::vector<RunResult::HeldLock> HeldLocks(const Book& book, Time now) {
    std::vector<RunResult::HeldLock> held;
    for (const auto& [handle, lock] : book.Locks()) {
        RunResult::HeldLock row;
        row.handle = handle;
        if (lock.until) row.leftMs = WholeMs(*lock.until - now);
        row.holder = lock.request->text;
        row.line = lock.request->line;
        row.owner = lock.owner;
        for (size_t i = 0; i + 1 < lock.list.size(); i += 2) {
            const int opcode = lock.list[i];
            const int value = lock.list[i + 1];
            row.pairs.push_back({opcode, value,
                                 Timeline::PairText(opcode, value, book.ClusterLayout()),
                                 book.IsAtDefault(opcode, value)});
        }
        held.push_back(std::move(row));
    }
    return held;
}

void PrintEnd(const RunResult& result, const Paint& paint, std::ostream& out) {
    out << (result.held.empty()
                ? std::string("No lock is held.")
                : paint(Colour::kBold, fmt::format("Locks still held: {}", result.held.size())))
        << "\n";
    for (const RunResult::HeldLock& lock : result.held) {
        out << fmt::format("  lock {:<4} {}, taken by: {}{}\n", lock.handle,
                           lock.leftMs ? fmt::format("for {} ms more", *lock.leftMs)
                                       : std::string("until released"),
                           lock.holder, AtLine(lock.line));
        for (const RunResult::Pair& pair : lock.pairs) {
            out << "            " << pair.text
                << (pair.isDefault ? ", the default: limits nothing\n" : "\n");
        }
    }
    if (result.findings.empty()) {
        out << paint(Colour::kGreen,
                     "Nothing leaked: every lock and every limit belongs to a request in force.")
            << "\n";
        return;
    }
    out << paint(Colour::kRed, fmt::format("Findings: {}", result.findings.size())) << "\n";
    for (const RunFinding& finding : result.findings) {
        out << paint(Colour::kRed, "  ! " + finding.text) << "\n";
    }
}

void PrintSummary(const std::vector<RunResult>& results, const Paint& paint, std::ostream& out) {
    size_t width = 0;
    for (const RunResult& result : results) width = std::max(width, result.name.size());
    size_t fine = 0;
    for (const RunResult& result : results) fine += result.Exit() == kFine ? 1 : 0;
    out << paint(Colour::kBold,
                 fmt::format("Summary: {} of {} fine", fine, Counted(results.size(), "scenario")))
        << "\n";
    for (const RunResult& result : results) {
        const std::string verdict = fmt::format("{:<10}", Verdict(result.Exit()));
        out << "  " << paint(ColourOf(result.Exit()), verdict);
        if (result.error) {
            out << "  " << *result.error << "\n";
            continue;
        }
        out << fmt::format("  {:<{}}  {}, {}, {}, {} held\n", result.name, width, result.device,
                           Counted(result.requests, "request"),
                           Counted(result.findings.size(), "finding"),
                           Counted(result.held.size(), "lock"));
    }
}

void PrintSummaryLine(const std::vector<RunResult>& results, const Paint& paint,
                      std::ostream& out) {
    size_t counts[3] = {};
    size_t requests = 0;
    double seconds = 0;
    for (const RunResult& result : results) {
        ++counts[result.Exit()];
        requests += result.requests;
        seconds += result.tookSeconds;
        for (const RunFinding& finding : result.findings) {
            out << paint(Colour::kRed, result.name + ": " + finding.text) << "\n";
        }
    }
    out << paint(ColourOf(WorstExit(results)),
                 fmt::format("{}: {} fine, {} with findings, {} cannot run; {} in {:.1f} s",
                             Counted(results.size(), "scenario"), counts[kFine], counts[kFindings],
                             counts[kCannotRun], Counted(requests, "request"), seconds))
        << "\n";
}

ExitCode WorstExit(const std::vector<RunResult>& results) {
    ExitCode worst = kFine;
    for (const RunResult& result : results) worst = std::max(worst, result.Exit());
    return worst;
}

void PrintJson(const std::vector<RunResult>& results, const std::vector<Coverage::File>& coverage,
               int exitCode, std::ostream& out) {
    Json scenarios = Json::array();
    for (const RunResult& result : results) scenarios.push_back(JsonOf(result));
    Json document = {{"exit_code", exitCode}, {"scenarios", std::move(scenarios)}};
    for (const Coverage::File& file : coverage) {
        document["coverage"].push_back({{"scenes", file.scenes},
                                        {"used", file.used},
                                        {"all", file.All()},
                                        {"percent", file.Percent()},
                                        {"unused", file.unused}});
    }
    out << JsonText(document) << "\n";
}

}  // namespace lab

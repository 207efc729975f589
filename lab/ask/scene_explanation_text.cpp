// What a scene file's commands do, as text and as JSON.
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "lab/ask/scene_explanation.h"
#include "lab/names/node_names.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

using Kind = ExplainedCommand::Kind;

const char* KindText(Kind kind) {
    constexpr const char* kTexts[] = {"action", "long scene", "interactive governor",
                                      "describes the device"};
    return kTexts[static_cast<size_t>(kind)];
}

std::string Lasts(const ExplainedElement& element, Kind kind) {
    if (kind == Kind::kDescription) return "";
    if (kind == Kind::kInteractive) return "never undone";
    if (element.durationMs < 0 || element.source->skip) return "never runs";
    if (element.durationMs > 0) return fmt::format("{} ms", element.durationMs);
    return kind == Kind::kLongScene ? "while its event lasts" : "until released";
}

std::string CountText(const ExplainedCommand& command) {
    if (!command.countLimit && !command.periodMs) return "";
    if (!command.countLimit) return "a period without boost_count_limit: not limited";
    if (!command.periodMs) return "a count without boost_period: not limited";
    return fmt::format("at most {} in {} ms", *command.countLimit, *command.periodMs);
}

Table PairTable(const ExplainedElement& element, bool wholePaths) {
    Table table({"code", "key", "value", "node", "reads then", ""});
    for (const ExplainedPair& pair : element.pairs) {
        std::vector<std::string> nodes;
        std::vector<std::string> reads;
        std::vector<std::string> notes = pair.notes;
        for (const ExplainedPair::Node& node : pair.nodes) {
            nodes.push_back(wholePaths ? node.path : ShortNode(node.path));
            if (!node.exists) {
                notes.emplace_back("the device has no such node");
                continue;
            }
            reads.push_back(NodeText(node.reads, node.reads.empty() ? "" : NodeUnit(node.path)));
        }
        table.Add({pair.code, pair.key, pair.value, Join(nodes), Join(reads), Join(notes)});
    }
    return table;
}

// "big 2227.2 MHz, prime 2841.6 MHz": a lift's names differ in the cluster alone.
std::string CeilingsText(const std::vector<ThermalLift::Ceiling>& ceilings) {
    std::vector<std::string> parts;
    for (const ThermalLift::Ceiling& ceiling : ceilings) {
        parts.push_back(ceiling.name.substr(0, ceiling.name.find("_cpu0_")) + " " + ceiling.value);
    }
    return Join(parts);
}

void PrintLifts(std::ostream& out, const ExplainedElement& element, const Paint& paint) {
    if (element.lifts.empty()) return;
    out << fmt::format("  breaks through thermal limits up to level {}\n", element.boostLimitLevel);
    Table table({"thermal level", "frequency level", "for", "scaling maxima", "its own maxima"});
    for (const ThermalLift& lift : element.lifts) {
        const std::string ceilings = CeilingsText(lift.ceilings);
        table.Add({std::to_string(lift.thermalLevel),
                   lift.frequencyLevel ? std::to_string(*lift.frequencyLevel) : "none",
                   fmt::format("{} ms", lift.forMs),
                   ceilings.empty() ? "none: it only keeps new thermal writes away" : ceilings,
                   CeilingsText(lift.rewritten)});
    }
    table.Print(out, "    ", paint);
}

void PrintElement(std::ostream& out, const ExplainedCommand& command,
                  const ExplainedElement& element, bool wholePaths, const Paint& paint) {
    out << "\n"
        << paint(Colour::kCyan, fmt::format("<{}>", element.source->name))
        << fmt::format(" line {}", element.source->place.line);
    const std::string lasts = Lasts(element, command.kind);
    if (!lasts.empty()) out << ", " << lasts;
    out << "\n";
    if (element.source->skip) out << "  skip is 1\n";
    if (element.source->stateMask > 0) {
        out << fmt::format("  runs only while the state shares a bit with 0x{:x}\n",
                           static_cast<unsigned>(element.source->stateMask));
    }
    if (element.source->taskBoost)
        out << "  sched_task_boost takes the task id of the request's message\n";
    if (element.offDelayTime != 0 || element.offDelayPerc != 0) {
        out << fmt::format("  off delay: time {}, percent {} (kept for the server)\n",
                           element.offDelayTime, element.offDelayPerc);
    }
    if (!element.pairs.empty()) PairTable(element, wholePaths).Print(out, "  ", paint);
    for (const std::string& dropped : element.dropped) {
        out << "  " << paint(Colour::kYellow, dropped) << "\n";
    }
    PrintLifts(out, element, paint);
}

// "1500 ms", or those of a chain: "500 ms, 200 ms".
std::string LastsText(const ExplainedCommand& command) {
    std::vector<std::string> parts;
    for (const ExplainedElement& element : command.elements) {
        const std::string lasts = Lasts(element, command.kind);
        if (!lasts.empty()) parts.push_back(lasts);
    }
    return Join(parts);
}

std::string SummaryRemark(const ExplainedCommand& command) {
    std::vector<std::string> parts;
    if (!command.isAccepted) {
        return "refused" + (command.problems.empty() ? "" : ": " + command.problems.front());
    }
    for (const ExplainedElement& element : command.elements) {
        if (element.source->stateMask > 0) {
            parts.push_back(
                fmt::format("state 0x{:x}", static_cast<unsigned>(element.source->stateMask)));
        }
        if (element.source->taskBoost) parts.emplace_back("task boost");
        if (!element.dropped.empty()) {
            parts.push_back(
                fmt::format("{} of its keys count for nothing", element.dropped.size()));
        }
    }
    const std::string count = CountText(command);
    if (!count.empty()) parts.push_back("breaks through " + count);
    return Join(parts);
}

nlohmann::json CeilingsJson(const std::vector<ThermalLift::Ceiling>& ceilings) {
    nlohmann::json json = nlohmann::json::object();
    for (const ThermalLift::Ceiling& ceiling : ceilings) json[ceiling.name] = ceiling.value;
    return json;
}

nlohmann::json ElementJson(const ExplainedElement& element) {
    nlohmann::json json = {{"name", element.source->name},
                           {"line", element.source->place.line},
                           {"column", element.source->place.column},
                           {"duration_ms", element.durationMs},
                           {"skip", element.source->skip},
                           {"state_mask", element.source->stateMask},
                           {"task_boost", element.source->taskBoost},
                           {"off_delay_time", element.offDelayTime},
                           {"off_delay_perc", element.offDelayPerc},
                           {"boost_limit_level", element.boostLimitLevel},
                           {"pairs", nlohmann::json::array()},
                           {"dropped", element.dropped},
                           {"thermal", nlohmann::json::array()}};
    for (const ExplainedPair& pair : element.pairs) {
        nlohmann::json entry = {{"key", pair.key},
                                {"code", pair.code},
                                {"value", pair.value},
                                {"notes", pair.notes},
                                {"nodes", nlohmann::json::array()}};
        for (const ExplainedPair::Node& node : pair.nodes) {
            entry["nodes"].push_back(
                {{"path", node.path}, {"exists", node.exists}, {"reads", node.reads}});
        }
        json["pairs"].push_back(std::move(entry));
    }
    for (const ThermalLift& lift : element.lifts) {
        nlohmann::json entry = {{"thermal_level", lift.thermalLevel},
                                {"frequency_level", OrNull(lift.frequencyLevel)},
                                {"for_ms", lift.forMs},
                                {"ceilings", CeilingsJson(lift.ceilings)},
                                {"rewritten", CeilingsJson(lift.rewritten)}};
        json["thermal"].push_back(std::move(entry));
    }
    return json;
}

void PrintProblems(std::ostream& out, const Explanation& explanation, const Paint& paint) {
    for (const std::string& problem : explanation.problems) {
        out << paint(Colour::kYellow, problem) << "\n";
    }
    if (!explanation.problems.empty()) out << "\n";
}

}  // namespace

void PrintCommand(std::ostream& out, const Explanation& explanation, bool wholePaths,
                  const Paint& paint) {
    PrintProblems(out, explanation, paint);
    for (const ExplainedCommand& command : explanation.commands) {
        out << paint(Colour::kBold, command.source->Label())
            << fmt::format(" {}:{}, {}, on {}{}\n", explanation.file, command.source->place.line,
                           KindText(command.kind), explanation.device,
                           explanation.isAssumed ? " (assumed; --device names another)" : "");
        for (const std::string& problem : command.problems) {
            out << paint(Colour::kRed, problem) << "\n";
        }
        if (!command.isAccepted) {
            out << "The plug-in refuses the command: nothing of it ever runs.\n";
            continue;
        }
        if (const std::string count = CountText(command); !count.empty()) {
            out << "  breaks through " << count << "\n";
        }
        if (std::any_of(std::begin(command.source->headers), std::end(command.source->headers),
                        [](int header) { return header != -1; })) {
            out << fmt::format("  headers {}, {}, {}\n", command.source->headers[0],
                               command.source->headers[1], command.source->headers[2]);
        }
        for (const ExplainedElement& element : command.elements) {
            PrintElement(out, command, element, wholePaths, paint);
        }
        for (const std::string& line : command.said) {
            out << paint(Colour::kRed, "  the plug-in says: " + line) << "\n";
        }
    }
}

void PrintSummary(std::ostream& out, const Explanation& explanation, const Paint& paint) {
    out << paint(Colour::kBold, explanation.file)
        << fmt::format(" on {}{}\n\n", explanation.device,
                       explanation.isAssumed ? " (assumed; --device names another)" : "");
    PrintProblems(out, explanation, paint);
    Table table({"command", "line", "kind", "lasts", "tunables", "thermal", "remark"});
    for (const ExplainedCommand& command : explanation.commands) {
        size_t pairs = 0;
        int highest = 0;
        for (const ExplainedElement& element : command.elements) {
            pairs += element.pairs.size();
            highest = std::max(highest, element.boostLimitLevel);
        }
        const bool hasTunables = command.isAccepted && command.kind != Kind::kDescription;
        table.Add({command.source->Label(), std::to_string(command.source->place.line),
                   KindText(command.kind), LastsText(command),
                   hasTunables ? std::to_string(pairs) : "",
                   highest > 0 ? fmt::format("up to {}", highest) : "", SummaryRemark(command)});
    }
    table.Print(out, "", paint);
}

nlohmann::json ExplanationJson(const Explanation& explanation) {
    nlohmann::json json = {{"file", explanation.file},
                           {"device", explanation.device},
                           {"device_assumed", explanation.isAssumed},
                           {"problems", explanation.problems},
                           {"commands", nlohmann::json::array()}};
    for (const ExplainedCommand& command : explanation.commands) {
        nlohmann::json entry = {{"id", command.source->id},
                                {"label", command.source->Label()},
                                {"line", command.source->place.line},
                                {"column", command.source->place.column},
                                {"kind", KindText(command.kind)},
                                {"accepted", command.isAccepted},
                                {"problems", command.problems},
                                {"headers", command.source->headers},
                                {"boost_count_limit", OrNull(command.countLimit)},
                                {"boost_period_ms", OrNull(command.periodMs)},
                                {"said", command.said},
                                {"elements", nlohmann::json::array()}};
        for (const ExplainedElement& element : command.elements) {
            entry["elements"].push_back(ElementJson(element));
        }
        json["commands"].push_back(std::move(entry));
    }
    return json;
}

}  // namespace lab

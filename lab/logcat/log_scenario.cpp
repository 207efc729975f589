#include "lab/logcat/log_scenario.h"

#include <fmt/format.h>

#include <string_view>

#include "lab/names/text.h"
#include "lab/server/scenario_writer.h"

namespace lab {

namespace {

// What the plug-in says of a HAL, a timer or a property that fails it. Its cause is out of the
// log's sight, so that a scenario of the log does not have it.
constexpr std::string_view kFaultsBesideNodes[] = {
    "tarquel: dlopen() ", "tarquel: dlsym() ", "tarquel: property_get() ",
    "tarquel Failed to create timer", "Failed to set timer"};

void TellFaultsBesideNodes(const LogRequest& request, std::vector<LogProblem>& leftOut) {
    for (const Event& effect : request.effects) {
        const auto* line = std::get_if<LogLine>(&effect.what);
        if (!line) continue;
        for (const std::string_view beginning : kFaultsBesideNodes) {
            if (!line->text.starts_with(beginning)) continue;
            leftOut.push_back({request.line, request.line,
                               fmt::format("left out: what made the plug-in say '{}'; a step "
                                           "'faults' arranges it (docs/faults.md)",
                                           line->text)});
        }
    }
}

}  // namespace

YamlNode ScenarioOf(LogSession& session, const LogSession::Options& options,
                    std::vector<LogProblem>& leftOut) {
    std::vector<YamlNode> steps;
    int64_t lastMs = 0;
    const auto add = [&](LogRequest&& request) {
        if (request.isRestart) {
            leftOut.push_back({request.line, request.line,
                               "the policy server begins anew here; a scenario cannot say that"});
        } else if (request.isEarlier || (request.isRequest && request.steps.empty())) {
            leftOut.push_back({request.line, request.line, "left out: " + request.text});
        }
        for (const YamlNode& step : request.steps) {
            lastMs = step.Get("at").AsInt("ms", 0, INT64_MAX);
            steps.push_back(step);
        }
        TellFaultsBesideNodes(request, leftOut);
    };
    session.Tell(add);
    const int64_t endMs = WholeMs(session.Log().end);
    if (endMs > lastMs) steps.push_back(MakeMap({{"wait", MakeScalar(endMs - lastMs)}}));

    std::vector<std::pair<std::string, YamlNode>> fields = {
        {"title", MakeScalar("Recorded from " + session.Log().file)},
        {"device", MakeScalar(options.device.empty() ? session.Device().name : options.device)}};
    if (!options.scenes.empty()) fields.emplace_back("scenes", MakeScalar(session.Scenes().File()));
    if (session.Story().detail == LogDetail::kFull) {
        fields.emplace_back("debug", MakeScalar("on"));
    } else if (session.Story().detail == LogDetail::kVersion) {
        fields.emplace_back("properties", MakeMap({{"ro.logsystem.usertype", MakeScalar("3")}}));
    }
    fields.emplace_back("steps", MakeList(std::move(steps)));
    return MakeMap(std::move(fields));
}

}  // namespace lab

#include "lab/ask/ask_text.h"

#include <fmt/format.h>

#include "lab/names/text.h"

namespace lab {
namespace {

using By = Ask::By;

constexpr size_t kWidestRequest = 60;

}  // namespace

std::string TimeText(const Moments& times, Time at) {
    return times.Text(at) + (times.HasClock() ? "" : " s");
}

std::string SinceText(const Moments& times, const Ask& ask) {
    return ask.isEarlier ? "since before the capture" : "since " + TimeText(times, ask.since);
}

std::string LastsText(const Ask& ask, Time now) {
    if (ask.until) return fmt::format("{} ms left", WholeMs(*ask.until - now));
    switch (ask.by) {
        case By::kClient:
            return "until its client says otherwise";
        case By::kScene:
            return "until its event ends";
        case By::kLock:
            return "until released";
        case By::kWrite:
            break;
    }
    return "until written again";
}

std::string HolderText(const Holder& holder, const ReplayAnswer& answer, const Paint& paint) {
    return paint(holder.wins ? Colour::kGreen : Colour::kYellow,
                 fmt::format("{:<7}", holder.wins ? "counts" : "loses")) +
           fmt::format(" {:<28} {:<14} {}, {}", holder.ask.who, holder.ask.ValueText(),
                       SinceText(answer.times, holder.ask), LastsText(holder.ask, answer.at));
}

std::string AskedText(const Ask& ask) {
    // A group's words can fill a page; the line tells where to read on.
    std::string request = ask.RequestText();
    if (request.size() > kWidestRequest) request = request.substr(0, kWidestRequest) + "...";
    std::string text = fmt::format("asked by '{}'", request);
    if (ask.request->line) text += fmt::format(", line {}", ask.request->line);
    return text;
}

nlohmann::json AskJson(const Ask& ask) {
    static constexpr const char* kKinds[] = {"client", "scene", "lock", "write"};
    nlohmann::json json = {{"by", kKinds[static_cast<size_t>(ask.by)]},
                           {"who", ask.who},
                           {"asked", ask.ValueText()},
                           {"request", ask.RequestText()},
                           {"line", ask.request->line},
                           {"since_ms", WholeMs(ask.since)}};
    if (ask.by != By::kWrite) {
        json["value"] = ask.value;
        json["opcode"] = fmt::format("0x{:08X}", static_cast<unsigned>(ask.opcode));
    }
    if (ask.isEarlier) json["since_ms"] = nullptr;
    if (ask.tag >= 0) json["tag"] = ask.tag;
    if (ask.handle > 0) json["lock"] = ask.handle;
    if (ask.until) json["until_ms"] = WholeMs(*ask.until);
    if (!ask.remark.empty()) json["remark"] = ask.remark;
    return json;
}

nlohmann::json HolderJson(const Holder& holder) {
    nlohmann::json entry = AskJson(holder.ask);
    entry["counts"] = holder.wins;
    entry["held"] = holder.held;
    entry["verdict"] = holder.verdict;
    entry["notes"] = holder.notes;
    entry["certainty"] = holder.doubt.empty() ? "sure" : "doubtful";
    if (!holder.doubt.empty()) entry["doubt"] = holder.doubt;
    return entry;
}

}  // namespace lab

// What is held, as text and as JSON.
#include <fmt/format.h>

#include <algorithm>

#include "lab/ask/ask_text.h"
#include "lab/ask/held.h"
#include "lab/names/node_names.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

void PrintNode(std::ostream& out, const HeldAnswer& answer, const NodeStory& story,
               const Paint& paint) {
    const bool isDefault = story.value == story.boot;
    out << paint(Colour::kBold, fmt::format("  {:<32} {}", ShortNode(story.target.path),
                                            NodeText(story.value, story.unit)))
        << (isDefault ? "" : fmt::format(" (boot {})", NodeText(story.boot, ""))) << ", "
        << story.Because() << "\n";
    for (const Holder& holder : story.holders) {
        out << "    " << HolderText(holder, answer, paint)
            << (holder.wins ? "" : "; " + holder.verdict) << "\n";
        if (!holder.doubt.empty()) {
            out << "            " << paint(Colour::kYellow, "not sure: " + holder.doubt) << "\n";
        }
    }
}

void PrintHold(std::ostream& out, const Moments& times, const LockHold& hold) {
    out << fmt::format("  {:>10} s{} {:<28} {}\n", SecondsText(hold.end - hold.since),
                       hold.isEarlier ? "+" : " ", hold.who, hold.what)
        << fmt::format("               from {} to {}; asked by {}\n",
                       hold.isEarlier ? "before the capture" : TimeText(times, hold.since),
                       hold.isHeld ? "held" : TimeText(times, hold.end), hold.takenBy->Quoted());
}

}  // namespace

void PrintHeld(std::ostream& out, const HeldAnswer& answer, size_t longest, const Paint& paint) {
    out << paint(Colour::kBold,
                 fmt::format("{} on {} at {}", longest > 0 ? "The longest holds" : "Held",
                             answer.device, TimeText(answer.times, answer.at)))
        << "\n  " << answer.title << "\n\n";
    const size_t count = longest > 0 ? answer.holds.size() : answer.nodes.size();
    if (count == 0) {
        out << (answer.isWhole ? "  Everything is at its default, and nobody asks for anything.\n"
                               : "  Nothing that this capture tells of is held.\n");
    }
    for (size_t i = 0; i < std::min(longest, answer.holds.size()); ++i) {
        PrintHold(out, answer.times, answer.holds[i]);
    }
    if (longest == 0) {
        for (const NodeStory& story : answer.nodes) PrintNode(out, answer, story, paint);
    }
    if (!answer.isWhole && count > 0) {
        out << paint(Colour::kYellow,
                     "\nAt least these: the capture does not tell everything (see above).")
            << "\n";
    }
    if (!answer.findings.empty()) out << "\n";
    for (const std::string& finding : answer.findings) {
        out << paint(Colour::kRed, finding) << "\n";
    }
}

std::string HeldJson(const HeldAnswer& answer) {
    using Json = nlohmann::json;
    Json json = {
        {"device", answer.device},     {"file", answer.title},       {"scenes", answer.scenes},
        {"at_ms", WholeMs(answer.at)}, {"is_whole", answer.isWhole}, {"remarks", answer.remarks},
        {"findings", answer.findings}, {"nodes", Json::array()},     {"holds", Json::array()}};
    if (answer.times.HasClock()) json["clock"] = answer.times.Stamp(answer.at);
    for (const NodeStory& story : answer.nodes) json["nodes"].push_back(NodeStoryJson(story));
    for (const LockHold& hold : answer.holds) {
        json["holds"].push_back({{"who", hold.who},
                                 {"what", hold.what},
                                 {"request", hold.takenBy->text},
                                 {"line", hold.takenBy->line},
                                 {"lock", hold.handle > 0 ? Json(hold.handle) : Json()},
                                 {"since_ms", hold.isEarlier ? Json() : Json(WholeMs(hold.since))},
                                 {"end_ms", hold.isHeld ? Json() : Json(WholeMs(hold.end))},
                                 {"lasted_ms", WholeMs(hold.end - hold.since)}});
    }
    return JsonText(json);
}

}  // namespace lab

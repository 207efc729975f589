#include "lab/ask/why.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "lab/ask/ask_text.h"
#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/table.h"
#include "lab/names/text.h"

namespace lab {
namespace {

using By = Ask::By;

// The clusters' short names, "cpu4 to cpu6", of the CPUs that share a node.
std::string SharedText(const NodeTarget& target) {
    if (target.sharedBy.empty()) return "";
    const auto cpuOf = [](const std::string& path) {
        const std::string name = ShortNode(path);
        return name.substr(0, name.find(' '));
    };
    return fmt::format(" (one node of {} to {})", cpuOf(target.path),
                       cpuOf(target.sharedBy.back()));
}

void PrintHolder(std::ostream& out, const Holder& holder, const WhyAnswer& answer,
                 const Paint& paint) {
    out << fmt::format("  {}\n          {}\n", HolderText(holder, answer, paint), holder.verdict);
    for (const std::string& note : holder.notes) out << fmt::format("          {}\n", note);
    if (!holder.doubt.empty()) {
        out << "          " << paint(Colour::kYellow, "not sure: " + holder.doubt) << "\n";
    }
    if (!holder.ask.remark.empty()) out << fmt::format("          {}\n", holder.ask.remark);
    out << paint(Colour::kDim, fmt::format("          {}{}{}", holder.held,
                                           holder.held.empty() ? "" : "; ", AskedText(holder.ask)))
        << "\n";
}

void PrintEnded(std::ostream& out, const WhyAnswer& answer, size_t most, const Paint& paint) {
    if (answer.ended.empty() || most == 0) return;
    out << "\n" << paint(Colour::kBold, "Asked before, and over") << "\n";
    for (size_t i = 0; i < std::min(most, answer.ended.size()); ++i) {
        const EndedAsk& ended = answer.ended[i];
        out << fmt::format("  {:>11}  {:<28} {:<14} {}\n", TimeText(answer.times, ended.at),
                           ended.ask.who, ended.ask.ValueText(), ended.how);
        out << paint(Colour::kDim, fmt::format("               {}{}",
                                               ended.ask.since == ended.at
                                                   ? ""
                                                   : SinceText(answer.times, ended.ask) + "; ",
                                               AskedText(ended.ask)))
            << "\n";
    }
    if (answer.ended.size() > most) {
        out << fmt::format("  and {} earlier; --history {} shows them\n",
                           answer.ended.size() - most, answer.ended.size());
    }
}

}  // namespace

WhyAnswer AskWhy(Replay& replay, const std::string& node) {
    Book& book = replay.GetBook();
    const Kernel& kernel = book.GetKernel();
    const NodeTarget target = FindNode(node, replay.Device(), kernel, replay.ArrangedNodes());
    const std::string boot = kernel.Value(target.path);
    book.KeepEnded(target);
    replay.Play([](const Event&) {});

    WhyAnswer answer;
    replay.Describe(answer);
    answer.story = TellNodeStory(replay, target, boot);
    answer.ended.assign(book.Ended().rbegin(), book.Ended().rend());
    answer.status = replay.Status();
    return answer;
}

void PrintWhy(std::ostream& out, const WhyAnswer& answer, size_t mostEnded, const Paint& paint) {
    const NodeStory& story = answer.story;
    const NodeTarget& target = story.target;
    out << paint(Colour::kBold, fmt::format("{} on {} at {}", ShortNode(target.path), answer.device,
                                            TimeText(answer.times, answer.at)))
        << "\n"
        << fmt::format("  {}{}\n  {}\n\n", target.path, SharedText(target), answer.title);
    out << fmt::format("  reads   {}, {}\n",
                       NodeText(story.exists ? story.value : "nothing", story.unit),
                       story.Because());
    out << fmt::format("  boot    {}\n", NodeText(story.boot.empty() ? "no such node" : story.boot,
                                                  story.boot.empty() ? "" : story.unit));
    const auto thermal = answer.status.find("mTB_Prior");
    if (thermal != answer.status.end() && thermal->second > 0) {
        out << fmt::format("  thermal level {} in force\n", thermal->second);
    }
    out << "\n";
    if (story.holders.empty()) {
        out << (answer.isWhole ? "  Nobody asks for anything now.\n"
                               : "  Nobody that this capture tells of asks for anything now.\n");
    } else {
        out << paint(Colour::kBold, "Who asks now") << "\n";
        for (const Holder& holder : story.holders) PrintHolder(out, holder, answer, paint);
    }
    PrintEnded(out, answer, mostEnded, paint);
}

std::string WhyJson(const WhyAnswer& answer) {
    nlohmann::json json = NodeStoryJson(answer.story);
    json.update({{"device", answer.device},
                 {"scenario", answer.title},
                 {"scenes", answer.scenes},
                 {"at_ms", WholeMs(answer.at)},
                 {"is_whole", answer.isWhole},
                 {"tags", answer.story.target.tags},
                 {"status", answer.status},
                 {"ended", nlohmann::json::array()}});
    for (const EndedAsk& ended : answer.ended) {
        nlohmann::json entry = AskJson(ended.ask);
        entry["ended_ms"] = WholeMs(ended.at);
        entry["how"] = ended.how;
        json["ended"].push_back(std::move(entry));
    }
    return JsonText(json);
}

}  // namespace lab

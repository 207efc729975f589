#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "lab/names/node_names.h"
#include "lab/pictures/lanes.h"
#include "lab/pictures/pictures.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

using Json = nlohmann::ordered_json;

// The trace's processes, in the order in which a viewer lists them.
enum Process : int { kServer = 1, kLocks = 2, kFrequencies = 3 };
// Lanes of the server's process.
enum ServerLane : int { kRequestLane = 1, kPluginLane = 2, kBreakthroughLane = 3, kLogLane = 4 };

// Time stamps are microseconds, whole ones wherever they are whole.
Json Micros(Time time) {
    const int64_t ns = time.count();
    if (ns % 1000 == 0) return ns / 1000;
    return static_cast<double>(ns) / 1000;
}

const char* PriorityName(int priority) {
    switch (priority) {
        case 2:
            return "verbose";
        case 3:
            return "debug";
        case 4:
            return "info";
        case 5:
            return "warning";
        default:
            return "error";
    }
}

class TraceWriter {
  public:
    TraceWriter(const History& history, const PictureHead& head)
        : mHistory(history), mHead(head), mLanes(LanesOf(history)) {}

    void Write(std::ostream& out) {
        AddNames();
        AddRequests();
        AddSections();
        AddBreakthroughs();
        AddLines();
        AddLocks();
        AddCounters();
        // A viewer takes events of one lane and time in their order here: an end stays behind its
        // begin.
        std::stable_sort(mEvents.begin(), mEvents.end(),
                         [](const Entry& a, const Entry& b) { return a.at < b.at; });
        out << "{\"displayTimeUnit\":\"ms\",\n\"otherData\":" << Text(OtherData())
            << ",\n\"traceEvents\":[\n";
        const char* before = "";
        for (const Entry& event : mEvents) {
            out << before << event.text;
            before = ",\n";
        }
        out << "\n]}\n";
    }

  private:
    struct Entry {
        Time at{};
        std::string text;
    };

    // Log texts may be anything; what is no UTF-8 is replaced.
    static std::string Text(const Json& json) {
        return json.dump(-1, ' ', false, Json::error_handler_t::replace);
    }

    Json OtherData() const {
        return {{"title", mHead.title},
                {"source", mHead.source},
                {"device", mHead.device},
                {"scenes", mHead.scenes}};
    }

    void Add(Time at, const char* phase, int process, int lane, const std::string& name,
             Json more = Json::object()) {
        Json event = {
            {"ph", phase}, {"pid", process}, {"tid", lane}, {"ts", Micros(mHead.origin + at)}};
        if (!name.empty()) event["name"] = name;
        event.update(more);
        mEvents.push_back({at, Text(event)});
    }

    void NameProcess(int process, const std::string& name) {
        Add({}, "M", process, 0, "process_name", {{"args", {{"name", name}}}});
        Add({}, "M", process, 0, "process_sort_index", {{"args", {{"sort_index", process}}}});
    }

    void NameLane(int process, int lane, const std::string& name) {
        Add({}, "M", process, lane, "thread_name", {{"args", {{"name", name}}}});
        Add({}, "M", process, lane, "thread_sort_index", {{"args", {{"sort_index", lane}}}});
    }

    void AddNames() {
        NameProcess(kServer, "policy server, " + mHead.device);
        NameLane(kServer, kRequestLane, "requests");
        if (!mHistory.Sections().empty()) NameLane(kServer, kPluginLane, "plug-in");
        if (!mHistory.Breakthroughs().empty()) {
            NameLane(kServer, kBreakthroughLane, "limit breakthrough");
        }
        NameLane(kServer, kLogLane, "log");
        NameProcess(kLocks, "perf HAL locks");
        for (size_t i = 0; i < mLanes.size(); ++i) {
            NameLane(kLocks, static_cast<int>(i) + 1, mLanes[i].name);
        }
        NameProcess(kFrequencies, "frequencies");
    }

    // "limit by thermal: big_max <= 1651.2 MHz (line 21)"
    std::string RequestText(size_t request) const {
        if (request == History::kNobody) return "";
        const History::Request& asked = mHistory.Requests()[request];
        return asked.line ? fmt::format("{} (line {})", asked.text, asked.line) : asked.text;
    }

    Json PairTexts(const std::vector<int>& list) const {
        Json texts = Json::array();
        for (size_t i = 0; i + 1 < list.size(); i += 2) {
            texts.push_back(Timeline::PairText(list[i], list[i + 1], mHead.layout));
        }
        return texts;
    }

    void AddInstant(Time at, int lane, const std::string& name, Json args) {
        Add(at, "i", kServer, lane, name, {{"s", "t"}, {"args", std::move(args)}});
    }

    void AddRequests() {
        for (const History::Request& request : mHistory.Requests()) {
            Json args = Json::object();
            if (!request.client.empty()) args["client"] = request.client;
            if (!request.command.empty()) args["command"] = request.command;
            if (!request.result.empty()) args["result"] = request.result;
            if (request.line) args["line"] = request.line;
            AddInstant(request.begin, kRequestLane, request.text, std::move(args));
        }
        for (const History::Refusal& refusal : mHistory.Refusals()) {
            AddInstant(
                refusal.at, kRequestLane, fmt::format("lock refused with {}", refusal.returned),
                {{"request", RequestText(refusal.request)}, {"asks", PairTexts(refusal.list)}});
        }
    }

    void AddSections() {
        for (const History::SectionMark& mark : mHistory.Sections()) {
            if (mark.begins) {
                const std::string name = mark.begins->empty() ? "(no name)" : *mark.begins;
                Add(mark.at, "B", kServer, kPluginLane, name, {{"cat", "plug-in"}});
            } else {
                Add(mark.at, "E", kServer, kPluginLane, "");
            }
        }
    }

    void AddSpan(Time begin, Time end, int process, int lane, const std::string& name,
                 const char* category, Json args) {
        Add(begin, "X", process, lane, name,
            {{"dur", Micros(end - begin)}, {"cat", category}, {"args", std::move(args)}});
    }

    void AddBreakthroughs() {
        for (const History::Breakthrough& breakthrough : mHistory.Breakthroughs()) {
            AddSpan(breakthrough.since, breakthrough.end, kServer, kBreakthroughLane,
                    fmt::format("limit breakthrough, {} ms", breakthrough.ms), "breakthrough",
                    {{"request", RequestText(breakthrough.request)}});
        }
    }

    void AddLines() {
        for (const History::Line& line : mHistory.Lines()) {
            AddInstant(line.at, kLogLane, line.text.empty() ? "(empty line)" : line.text,
                       {{"priority", PriorityName(line.priority)}, {"tag", line.tag}});
        }
    }

    void AddLocks() {
        for (size_t i = 0; i < mLanes.size(); ++i) {
            for (const size_t index : mLanes[i].locks) {
                AddLock(mHistory.Locks()[index], static_cast<int>(i) + 1);
            }
        }
    }

    // A slice for each term: what a lock holds may change when it is renewed.
    void AddLock(const History::Lock& lock, int lane) {
        for (size_t i = 0; i < lock.terms.size(); ++i) {
            const History::Term& term = lock.terms[i];
            const bool isLast = i + 1 == lock.terms.size();
            Json args = {{"lock", lock.handle},
                         {"request", RequestText(term.request)},
                         {"lasts", TermText(term)},
                         {"ended", isLast ? LockEndText(lock) : "renewed"},
                         {"asks", PairTexts(term.list)}};
            AddSpan(term.since, isLast ? lock.end : lock.terms[i + 1].since, kLocks, lane,
                    mHistory.HolderOf(term), "lock", std::move(args));
        }
    }

    void AddSeries(const std::string& name, const std::vector<History::Point>& points) {
        const auto add = [&](Time at, int64_t khz) {
            Add(at, "C", kFrequencies, 0, name,
                {{"args", {{"MHz", static_cast<double>(khz) / 1000}}}});
        };
        for (const History::Point& point : points) add(point.at, point.khz);
        // A counter is drawn up to its last sample.
        if (!points.empty() && points.back().at < mHistory.End()) {
            add(mHistory.End(), points.back().khz);
        }
    }

    void AddCounters() {
        for (const History::Track& track : mHistory.Tracks()) {
            AddSeries(track.name + " ceiling", track.ceiling);
            AddSeries(track.name + " current", track.current);
            AddSeries(track.name + " floor", track.floor);
        }
    }

    const History& mHistory;
    const PictureHead& mHead;
    const std::vector<Lane> mLanes;
    std::vector<Entry> mEvents;
};

int64_t Ms(Time time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

}  // namespace

void WriteTrace(const History& history, const PictureHead& head, std::ostream& out) {
    TraceWriter(history, head).Write(out);
}

std::string TermText(const History::Term& term) {
    return term.until ? fmt::format("for {} ms", Ms(*term.until - term.since)) : "until released";
}

std::string LockEndText(const History::Lock& lock) {
    if (lock.how == History::LockEnd::kHeld) return "held at the end of the run";
    return fmt::format("{} after {} ms",
                       lock.how == History::LockEnd::kExpired ? "expired" : "released",
                       Ms(lock.end - lock.Since()));
}

}  // namespace lab

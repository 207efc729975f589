#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <map>

#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/pictures/json_stream.h"
#include "lab/pictures/lanes.h"
#include "lab/pictures/pictures.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

// The trace's processes, in the order in which a viewer lists them.
enum Process : int { kServer = 1, kLocks = 2, kFrequencies = 3 };
// Lanes of the server's process.
enum ServerLane : int { kRequestLane = 1, kPluginLane = 2, kBreakthroughLane = 3, kLogLane = 4 };

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

// What one holder has of one term of a lock: a slice of the trace.
struct Slice {
    size_t lock = 0;
    size_t term = 0;
    Time since{};
    Time end{};
    int lane = 0;
    size_t cause = History::kNobody;  // the request from which a flow leads here
};

class TraceWriter {
  public:
    TraceWriter(const History& history, const PictureHead& head, std::ostream& out)
        : mHistory(history), mHead(head), mJson(out), mLanes(LanesOf(history, head.layout)) {}

    void Write() {
        mJson.Open('{');
        mJson.Field("displayTimeUnit", "ms");
        mJson.Break();
        mJson.Key("otherData");
        mJson.Open('{');
        mJson.Field("title", mHead.title);
        mJson.Field("source", mHead.source);
        mJson.Field("device", mHead.device);
        mJson.Field("scenes", mHead.scenes);
        if (mHead.moments.HasClock()) mJson.Field("clock_at_start", mHead.moments.Stamp({}));
        mJson.Close('}');
        mJson.Break();
        mJson.Key("traceEvents");
        mJson.Open('[');
        WriteNames();
        WriteEvents();
        mJson.Close(']');
        mJson.Close('}');
    }

  private:
    // Events of one kind by time, told when their turn has come: a text for each would fill the
    // memory.
    struct Source {
        size_t count = 0;
        std::function<Time(size_t)> at;
        std::function<void(size_t)> write;
        size_t next = 0;
        Time due{};  // of the next one
    };

    template <typename Items, typename Write>
    void Add(const Items& items, Time Items::value_type::*at, const Write& write) {
        if (items.empty()) return;
        const auto timeOf = [&items, at](size_t i) { return items[i].*at; };
        mSources.push_back({items.size(), timeOf, [&items, write](size_t i) { write(items[i]); }});
        mSources.back().due = timeOf(0);
    }

    void WriteEvents() {
        MakeSlices();
        // At one time in this order.
        Add(mHistory.Requests(), &History::Request::begin,
            [this](const auto& request) { WriteRequest(request); });
        Add(mHistory.Refusals(), &History::Refusal::at,
            [this](const auto& refusal) { WriteRefusal(refusal); });
        Add(mHistory.Sections(), &History::SectionMark::at,
            [this](const auto& mark) { WriteSection(mark); });
        Add(mHistory.Breakthroughs(), &History::Breakthrough::since,
            [this](const auto& breakthrough) { WriteBreakthrough(breakthrough); });
        Add(mHistory.Lines(), &History::Line::at, [this](const auto& line) { WriteLine(line); });
        Add(mSlices, &Slice::since, [this](const Slice& slice) { WriteSlice(slice); });
        Add(mHistory.Controls(), &History::Control::at,
            [this](const auto& control) { WriteControl(control, control.at); });
        AddCounters();
        const auto isLater = [](const Source& a, const Source& b) { return a.due < b.due; };
        while (!mSources.empty()) {
            const auto source = std::min_element(mSources.begin(), mSources.end(), isLater);
            source->write(source->next++);
            if (source->next < source->count) {
                source->due = source->at(source->next);
            } else {
                mSources.erase(source);
            }
        }
        EndCounters();
    }

    // An event up to its fields of its own; times are microseconds, whole ones where they are
    // whole.
    void Begin(Time at, const char* phase, int process, int lane, std::string_view name) {
        mJson.Break();
        mJson.Open('{');
        mJson.Field("ph", phase);
        mJson.Field("pid", process);
        mJson.Field("tid", lane);
        mJson.Key("ts");
        mJson.Decimal((mHead.origin + at).count());
        if (!name.empty()) mJson.Field("name", name);
    }

    void BeginSpan(Time begin, Time end, int process, int lane, std::string_view name) {
        Begin(begin, "X", process, lane, name);
        mJson.Key("dur");
        mJson.Decimal((end - begin).count());
    }

    void BeginInstant(Time at, int lane, std::string_view name) {
        Begin(at, "i", kServer, lane, name);
        mJson.Field("s", "t");
    }

    void OpenArgs() {
        mJson.Key("args");
        mJson.Open('{');
    }

    // What the capture's clock showed is among the facts of an event: a viewer's axis may count
    // from the beginning.
    void OpenFacts(Time at) {
        OpenArgs();
        if (mHead.moments.HasClock()) mJson.Field("clock", mHead.moments.Stamp(at));
    }

    void EndWithArgs() {
        mJson.Close('}');
        mJson.Close('}');
    }

    void WriteName(const char* kind, int process, int lane, std::string_view name) {
        Begin({}, "M", process, lane, std::string(kind) + "_name");
        OpenArgs();
        mJson.Field("name", name);
        EndWithArgs();
        Begin({}, "M", process, lane, std::string(kind) + "_sort_index");
        OpenArgs();
        mJson.Field("sort_index", lane == 0 ? process : lane);
        EndWithArgs();
    }

    void WriteNames() {
        WriteName("process", kServer, 0, "policy server, " + mHead.device);
        WriteName("thread", kServer, kRequestLane, "requests");
        if (!mHistory.Sections().empty()) WriteName("thread", kServer, kPluginLane, "plug-in");
        if (!mHistory.Breakthroughs().empty()) {
            WriteName("thread", kServer, kBreakthroughLane, "limit breakthrough");
        }
        WriteName("thread", kServer, kLogLane, "log");
        WriteName("process", kLocks, 0, "perf HAL locks");
        for (size_t i = 0; i < mLanes.size(); ++i) {
            WriteName("thread", kLocks, static_cast<int>(i) + 1, mLanes[i].name);
        }
        WriteName("process", kFrequencies, 0, "frequencies");
    }

    // "limit by thermal: big_max <= 1651.2 MHz (line 21)"
    std::string RequestText(size_t request) const {
        if (request >= mHistory.Requests().size()) return "";
        const History::Request& asked = mHistory.Requests()[request];
        return asked.line ? fmt::format("{} (line {})", asked.text, asked.line) : asked.text;
    }

    const std::string& PairText(int opcode, int value) {
        const auto [entry, isNew] = mPairTexts.try_emplace({opcode, value});
        if (isNew) entry->second = Timeline::PairText(opcode, value, mHead.layout);
        return entry->second;
    }

    void WriteAsks(const std::vector<int>& list) {
        mJson.Key("asks");
        mJson.Open('[');
        for (size_t i = 0; i + 1 < list.size(); i += 2) mJson.Text(PairText(list[i], list[i + 1]));
        mJson.Close(']');
    }

    void WriteRequest(const History::Request& request) {
        BeginSpan(request.begin, request.end, kServer, kRequestLane,
                  request.text.empty() ? "(no text)" : request.text);
        mJson.Field("cat", "request");
        OpenFacts(request.begin);
        if (!request.client.empty()) mJson.Field("client", request.client);
        if (!request.command.empty()) mJson.Field("command", request.command);
        if (!request.result.empty()) mJson.Field("result", request.result);
        if (request.line) mJson.Field("line", request.line);
        EndWithArgs();
        // A flow begins at the slice that was told last.
        const auto index = static_cast<size_t>(&request - mHistory.Requests().data());
        for (; mNextFlow < mFlows.size(); ++mNextFlow) {
            const size_t slice = mFlows[mNextFlow];
            if (mSlices[slice].cause != index) break;
            WriteFlow(request.begin, "s", kServer, kRequestLane, slice);
        }
    }

    void WriteFlow(Time at, const char* phase, int process, int lane, size_t slice) {
        Begin(at, phase, process, lane, "lock");
        mJson.Field("cat", "lock");
        mJson.Field("id", slice + 1);
        if (*phase == 'f') mJson.Field("bp", "e");
        mJson.Close('}');
    }

    void WriteRefusal(const History::Refusal& refusal) {
        BeginInstant(refusal.at, kRequestLane,
                     fmt::format("lock refused with {}", refusal.returned));
        OpenFacts(refusal.at);
        mJson.Field("request", RequestText(refusal.request));
        WriteAsks(refusal.list);
        EndWithArgs();
    }

    void WriteSection(const History::SectionMark& mark) {
        if (mark.begins) {
            Begin(mark.at, "B", kServer, kPluginLane,
                  mark.begins->empty() ? "(no name)" : *mark.begins);
            mJson.Field("cat", "plug-in");
        } else {
            Begin(mark.at, "E", kServer, kPluginLane, "");
        }
        mJson.Close('}');
    }

    void WriteBreakthrough(const History::Breakthrough& breakthrough) {
        BeginSpan(breakthrough.since, breakthrough.end, kServer, kBreakthroughLane,
                  fmt::format("limit breakthrough, {} ms", breakthrough.ms));
        mJson.Field("cat", "breakthrough");
        OpenFacts(breakthrough.since);
        mJson.Field("request", RequestText(breakthrough.request));
        EndWithArgs();
    }

    void WriteLine(const History::Line& line) {
        BeginInstant(line.at, kLogLane, line.text.empty() ? "(empty line)" : line.text);
        OpenFacts(line.at);
        mJson.Field("priority", PriorityName(line.priority));
        mJson.Field("tag", line.tag);
        EndWithArgs();
    }

    // A slice for each term: what a lock holds may change when it is renewed.
    void MakeSlices() {
        for (size_t i = 0; i < mLanes.size(); ++i) {
            for (const LaneSpan& span : mLanes[i].spans) AddSlices(span, static_cast<int>(i) + 1);
        }
        std::stable_sort(mSlices.begin(), mSlices.end(),
                         [](const Slice& a, const Slice& b) { return a.since < b.since; });
        for (size_t i = 0; i < mSlices.size(); ++i) {
            if (mSlices[i].cause != History::kNobody) mFlows.push_back(static_cast<uint32_t>(i));
        }
        std::stable_sort(mFlows.begin(), mFlows.end(), [this](uint32_t a, uint32_t b) {
            return mSlices[a].cause < mSlices[b].cause;
        });
    }

    void AddSlices(const LaneSpan& span, int lane) {
        const History::Lock& lock = mHistory.Locks()[span.lock];
        for (size_t i = 0; i < lock.terms.size(); ++i) {
            const bool isLast = i + 1 == lock.terms.size();
            const Time since = std::max(lock.terms[i].since, span.since);
            const Time end = std::min(isLast ? lock.end : lock.terms[i + 1].since, span.end);
            if (end < since || (end == since && (!isLast || span.since < span.end))) continue;
            size_t cause = since == lock.terms[i].since ? lock.terms[i].request
                                                        : History::HoldingAt(lock, since).request;
            if (cause == History::kSomebody) cause = History::kNobody;
            mSlices.push_back({span.lock, i, since, end, lane, cause});
        }
    }

    std::string HolderAt(const History::Lock& lock, Time at) const {
        return NameOfWho(mHistory.WhoOf(History::HoldingAt(lock, at).request));
    }

    // How the slice ended: with the lock, because another one has the lock now, or by a renewal.
    std::string EndText(const Slice& slice, const std::string& holder) const {
        const History::Lock& lock = mHistory.Locks()[slice.lock];
        if (slice.end == lock.end) return LockEndText(lock);
        const std::string next = HolderAt(lock, slice.end);
        return next == holder ? "renewed" : "goes on for " + next;
    }

    // "big >= 1651 MHz": the frequencies that the list limits, else the first of what it asks.
    std::string LimitText(const std::vector<int>& list) {
        std::string text;
        for (size_t i = 0; i + 1 < list.size(); i += 2) {
            const auto bearing = mHistory.BearingOf(list[i], list[i + 1]);
            if (!bearing) continue;
            const char* sign = bearing->isFloor ? ">=" : bearing->lifts ? "lifted to" : "<=";
            // MHz are cut as in the lock.
            text += fmt::format("{}{} {} {} MHz", text.empty() ? "" : ", ",
                                mHistory.Tracks()[bearing->track].name, sign, bearing->khz / 1000);
        }
        if (text.empty() && list.size() > 1) text = PairText(list[0], list[1]);
        return text;
    }

    void WriteSlice(const Slice& slice) {
        const auto index = static_cast<size_t>(&slice - mSlices.data());
        const History::Lock& lock = mHistory.Locks()[slice.lock];
        const History::Term& term = lock.terms[slice.term];
        const History::Holding& holding = History::HoldingAt(lock, slice.since);
        const std::string holder = NameOfWho(mHistory.WhoOf(holding.request));
        const std::string limits = LimitText(term.list);
        BeginSpan(slice.since, slice.end, kLocks, slice.lane,
                  limits.empty() ? holder : holder + ": " + limits);
        mJson.Field("cat", "lock");
        OpenFacts(slice.since);
        mJson.Field("lock", lock.handle);
        mJson.Field("holder", holder);
        mJson.Field("request", RequestText(holding.request));
        if (term.request != holding.request) mJson.Field("taken by", RequestText(term.request));
        mJson.Field("lasts", TermText(term));
        mJson.Field("ended", EndText(slice, holder));
        WriteAsks(term.list);
        EndWithArgs();
        if (slice.cause != History::kNobody) {
            WriteFlow(slice.since, "f", kLocks, slice.lane, index);
        }
    }

    void WriteControl(const History::Control& control, Time at) {
        const auto write = [&](const char* name, int value) {
            Begin(at, "C", kServer, 0, name);
            OpenArgs();
            mJson.Field("value", value);
            EndWithArgs();
        };
        write("thermal level", control.state.thermalLevel);
        write("control type", control.state.type);
    }

    void WriteSample(const std::string& name, const History::Point& point, Time at) {
        Begin(at, "C", kFrequencies, 0, name);
        OpenArgs();
        mJson.Key("MHz");
        mJson.Decimal(point.khz);
        EndWithArgs();
    }

    template <typename Use>
    void ForEachSeries(const Use& use) const {
        const std::vector<bool> isShown = mHistory.ShownTracks();
        for (size_t i = 0; i < isShown.size(); ++i) {
            if (!isShown[i]) continue;
            const History::Track& track = mHistory.Tracks()[i];
            use(track.name + " ceiling", track.ceiling);
            use(track.name + " current", track.current);
            use(track.name + " floor", track.floor);
        }
    }

    void AddCounters() {
        ForEachSeries([this](const std::string& name, const std::vector<History::Point>& points) {
            Add(points, &History::Point::at,
                [this, name](const History::Point& point) { WriteSample(name, point, point.at); });
        });
    }

    // A counter is drawn up to its last sample.
    void EndCounters() {
        const Time end = mHistory.End();
        ForEachSeries([&](const std::string& name, const std::vector<History::Point>& points) {
            if (!points.empty() && points.back().at < end) WriteSample(name, points.back(), end);
        });
        if (!mHistory.Controls().empty()) WriteControl(mHistory.Controls().back(), end);
    }

    const History& mHistory;
    const PictureHead& mHead;
    JsonStream mJson;
    const std::vector<Lane> mLanes;
    std::vector<Slice> mSlices;
    std::vector<uint32_t> mFlows;  // slices with a cause, by that
    size_t mNextFlow = 0;
    std::vector<Source> mSources;
    std::map<std::pair<int, int>, std::string> mPairTexts;
};

}  // namespace

std::string TermText(const History::Term& term) {
    return term.until ? fmt::format("for {} ms", WholeMs(*term.until - term.since))
                      : "until released";
}

std::string LockEndText(const History::Lock& lock) {
    if (lock.how == History::LockEnd::kHeld) return "held at the end of the run";
    return fmt::format("{} after {} ms",
                       lock.how == History::LockEnd::kExpired ? "expired" : "released",
                       WholeMs(lock.end - lock.Since()));
}

void WriteTrace(const History& history, const PictureHead& head, std::ostream& out) {
    TraceWriter(history, head, out).Write();
}

}  // namespace lab

#include <algorithm>
#include <map>
#include <unordered_map>

#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/pictures/json_stream.h"
#include "lab/pictures/lanes.h"
#include "lab/pictures/pictures.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

// A page with more log lines than this gets sluggish to load: the least important ones are left out
// and counted.
constexpr size_t kMostLines = 150'000;

constexpr int kAndroidWarning = 5;

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kNsPerMicrosecond = 1'000;

// -1 for History::kNobody, -2 for kSomebody.
int64_t IndexOrNone(size_t index) {
    return static_cast<int64_t>(index);
}

// What is told once, by number.
template <typename Map>
class Index {
  public:
    using Key = typename Map::key_type;

    size_t operator()(const Key& key) {
        const auto [entry, isNew] = mNumbers.try_emplace(key, mKeys.size());
        if (isNew) mKeys.push_back(&entry->first);
        return entry->second;
    }

    const std::vector<const Key*>& Keys() const { return mKeys; }

  private:
    Map mNumbers;
    std::vector<const Key*> mKeys;  // by number
};

class DataWriter {
  public:
    DataWriter(const History& history, const PictureHead& head, std::ostream& out)
        : mHistory(history),
          mHead(head),
          mJson(out, true),
          mTickNs(IsInMs() ? kNsPerMs : kNsPerMicrosecond) {}

    void Write() {
        mJson.Open('{');
        mJson.Field("title", mHead.title);
        mJson.Field("source", mHead.source);
        mJson.Field("device", mHead.device);
        mJson.Field("scenes", mHead.scenes);
        mJson.Field("ticksPerSecond", 1'000'000'000 / mTickNs);
        mJson.Field("end", Ticks(mHistory.End()));
        if (mHead.moments.HasClock()) WriteClock();
        WriteFindings();
        WriteRequests();
        WriteLocks();
        WriteLanes();
        WriteOccasions();
        WriteWrites();
        WriteLines();
        // Filled by what stands above.
        WriteLists();
        WritePairsAndTracks();
        mJson.Key("texts");
        mJson.Open('[');
        for (const std::string* text : mTexts.Keys()) mJson.Text(*text);
        mJson.Close(']');
        mJson.Close('}');
    }

  private:
    // True on the virtual clock, where all happens at whole milliseconds.
    bool IsInMs() const {
        const auto isWhole = [](Time at) { return at.count() % kNsPerMs == 0; };
        const auto& requests = mHistory.Requests();
        const auto& locks = mHistory.Locks();
        return isWhole(mHistory.End()) &&
               std::all_of(requests.begin(), requests.end(),
                           [&](const auto& request) { return isWhole(request.begin); }) &&
               std::all_of(locks.begin(), locks.end(), [&](const auto& lock) {
                   return isWhole(lock.Since()) && isWhole(lock.end);
               });
    }

    int64_t Ticks(Time at) const { return at.count() / mTickNs; }

    int64_t TicksOrNone(const std::optional<Time>& at) const { return at ? Ticks(*at) : -1; }

    // Times that never fall, each as the difference from the one before.
    template <typename Items, typename TimeOf>
    void Times(const Items& items, const TimeOf& timeOf) {
        int64_t last = 0;
        mJson.Key("t");
        mJson.Open('[');
        for (const auto& item : items) {
            const int64_t ticks = Ticks(timeOf(item));
            mJson.Number(ticks - last);
            last = ticks;
        }
        mJson.Close(']');
    }

    void OpenList(const char* name) {
        mJson.Key(name);
        mJson.Open('[');
    }

    void OpenTable(const char* name) {
        mJson.Key(name);
        mJson.Open('{');
    }

    void CloseTable() {
        mJson.Close(']');
        mJson.Close('}');
    }

    void WriteSeries(const char* name, const std::vector<History::Point>& points) {
        OpenTable(name);
        Times(points, [](const History::Point& point) { return point.at; });
        OpenList("khz");
        for (const History::Point& point : points) mJson.Number(point.khz);
        CloseTable();
    }

    void WriteClock() {
        mJson.Key("clock");
        mJson.Open('{');
        mJson.Field("originUs", mHead.moments.Origin().count());
        mJson.Field("dated", mHead.moments.HasSeveralDates() ? 1 : 0);
        mJson.Close('}');
    }

    void WriteFindings() {
        OpenList("findings");
        for (const RunFinding& finding : mHead.findings) {
            mJson.Row(finding.text, TicksOrNone(finding.at), IndexOrNone(finding.request - 1),
                      IndexOrNone(finding.lock.value_or(History::kNobody)));
        }
        mJson.Close(']');
    }

    void WriteRequests() {
        OpenTable("requests");
        Times(mHistory.Requests(), [](const auto& request) { return request.begin; });
        OpenList("rows");
        for (const History::Request& request : mHistory.Requests()) {
            mJson.Row(mTexts(request.text), mTexts(request.result), request.line,
                      mTexts(request.client), mTexts(request.command));
        }
        CloseTable();
    }

    void WriteLocks() {
        OpenList("locks");
        for (const History::Lock& lock : mHistory.Locks()) {
            mJson.Open('[');
            mJson.Put(lock.handle);
            mJson.Put(Ticks(lock.end));
            mJson.Put(static_cast<int>(lock.how));
            mJson.Put(IndexOrNone(lock.endRequest));
            mJson.Open('[');
            for (const History::Term& term : lock.terms) {
                mJson.Row(Ticks(term.since), TicksOrNone(term.until), mLists(term.list),
                          IndexOrNone(term.request));
            }
            mJson.Close(']');
            WriteHoldings(lock);
            mJson.Close(']');
        }
        mJson.Close(']');
    }

    // Nothing for a lock that whoever took it holds to its end, as most are.
    void WriteHoldings(const History::Lock& lock) {
        const History::Holding& first = lock.holdings.front();
        if (lock.holdings.size() == 1 && first.request == lock.terms.front().request) return;
        mJson.Open('[');
        for (const History::Holding& holding : lock.holdings) {
            mJson.Row(Ticks(holding.since), IndexOrNone(holding.request));
        }
        mJson.Close(']');
    }

    // A span is its lock's number, or [lock, since, end] where it is a part of it.
    void WriteLanes() {
        OpenList("lanes");
        for (const Lane& lane : LanesOf(mHistory, mHead.layout)) {
            mJson.Open('{');
            mJson.Field("name", lane.name);
            mJson.Field("who", lane.who);
            OpenList("spans");
            for (const LaneSpan& span : lane.spans) {
                const History::Lock& lock = mHistory.Locks()[span.lock];
                if (span.since == lock.Since() && span.end == lock.end) {
                    mJson.Put(span.lock);
                } else {
                    mJson.Row(span.lock, Ticks(span.since), Ticks(span.end));
                }
            }
            CloseTable();
        }
        mJson.Close(']');
    }

    void WriteOccasions() {
        OpenList("refusals");
        for (const History::Refusal& refusal : mHistory.Refusals()) {
            mJson.Row(Ticks(refusal.at), refusal.returned, mLists(refusal.list),
                      IndexOrNone(refusal.request));
        }
        mJson.Close(']');
        OpenList("breakthroughs");
        for (const History::Breakthrough& row : mHistory.Breakthroughs()) {
            mJson.Row(Ticks(row.since), Ticks(row.end), row.ms, IndexOrNone(row.request));
        }
        mJson.Close(']');
        OpenList("controls");
        for (const History::Control& control : mHistory.Controls()) {
            const ControlState& state = control.state;
            mJson.Row(Ticks(control.at), state.type, state.thermalLevel, state.limitsInForce,
                      state.boosts);
        }
        mJson.Close(']');
    }

    struct NodeTexts {
        size_t name = 0;
        size_t unit = 0;
    };

    void WriteWrites() {
        OpenTable("writes");
        Times(mHistory.Writes(), [](const auto& write) { return write.at; });
        OpenList("rows");
        std::unordered_map<std::string, NodeTexts> nodes;
        for (const History::Write& write : mHistory.Writes()) {
            const auto [node, isNew] = nodes.try_emplace(write.path);
            if (isNew) node->second = {mTexts(ShortNode(write.path)), mTexts(NodeUnit(write.path))};
            const size_t before = mTexts(write.before);
            const size_t after = mTexts(write.after);
            mJson.Row(node->second.name, before, after, node->second.unit, write.error,
                      IndexOrNone(write.request));
        }
        CloseTable();
    }

    // The lines for which the page has room: all, or the important ones.
    std::vector<const History::Line*> ShownLines() const {
        const std::vector<History::Line>& lines = mHistory.Lines();
        const bool isFull = lines.size() > kMostLines;
        std::vector<const History::Line*> shown;
        for (const History::Line& line : lines) {
            if (isFull && line.priority < kAndroidWarning) continue;
            if (shown.size() == kMostLines) break;
            shown.push_back(&line);
        }
        return shown;
    }

    void WriteLines() {
        const std::vector<const History::Line*> shown = ShownLines();
        OpenTable("lines");
        Times(shown, [](const History::Line* line) { return line->at; });
        OpenList("rows");
        for (const History::Line* line : shown) {
            mJson.Open('[');
            mJson.Put(line->priority);
            mJson.Put(mTexts(std::string(line->tag)));
            mJson.Put(mTexts(std::string(line->text)));
            mJson.Put(IndexOrNone(line->request));
            if (IsUsualLine(line->text)) mJson.Put(1);
            mJson.Close(']');
        }
        CloseTable();
        mJson.Field("linesLeftOut", mHistory.Lines().size() - shown.size());
    }

    void WriteLists() {
        OpenList("lists");
        for (const std::vector<int>* list : mLists.Keys()) {
            mJson.Open('[');
            for (size_t i = 0; i + 1 < list->size(); i += 2) {
                mJson.Put(mPairs({(*list)[i], (*list)[i + 1]}));
            }
            mJson.Close(']');
        }
        mJson.Close(']');
    }

    // Pairs: text, and for one that limits a frequency: track, 0 floor, 1 ceiling, 2 lifted
    // ceiling, kHz. Tracks: those that are shown, by the numbers that the pairs have of them.
    void WritePairsAndTracks() {
        const std::vector<History::Track>& tracks = mHistory.Tracks();
        const std::vector<bool> isShown = mHistory.ShownTracks();
        std::vector<int64_t> numbers;
        int64_t next = 0;
        for (const bool shown : isShown) numbers.push_back(shown ? next++ : -1);
        OpenList("pairs");
        for (const auto* pair : mPairs.Keys()) {
            mJson.Open('[');
            const std::string text = Timeline::PairText(pair->first, pair->second, mHead.layout);
            mJson.Put(mTexts(text));
            // What was only asked for, and refused, makes no chart.
            const auto bearing = mHistory.BearingOf(pair->first, pair->second);
            if (bearing && isShown[bearing->track]) {
                mJson.Number(numbers[bearing->track]);
                mJson.Number(bearing->isFloor ? 0 : bearing->lifts ? 2 : 1);
                mJson.Number(bearing->khz);
            }
            mJson.Close(']');
        }
        mJson.Close(']');
        OpenList("tracks");
        for (size_t i = 0; i < tracks.size(); ++i) {
            if (isShown[i]) WriteTrack(tracks[i]);
        }
        mJson.Close(']');
    }

    void WriteTrack(const History::Track& track) {
        mJson.Open('{');
        mJson.Field("name", track.name);
        mJson.Field("label", track.label);
        if (track.isBus) mJson.Field("isBus", 1);
        mJson.Field("lowKhz", track.lowKhz);
        mJson.Field("highKhz", track.highKhz);
        WriteSeries("floor", track.floor);
        WriteSeries("ceiling", track.ceiling);
        WriteSeries("current", track.current);
        mJson.Close('}');
    }

    const History& mHistory;
    const PictureHead& mHead;
    JsonStream mJson;
    const int64_t mTickNs;
    Index<std::unordered_map<std::string, size_t>> mTexts;
    Index<std::map<std::vector<int>, size_t>> mLists;
    Index<std::map<std::pair<int, int>, size_t>> mPairs;
};

}  // namespace

void WriteReportData(const History& history, const PictureHead& head, std::ostream& out) {
    DataWriter(history, head, out).Write();
}

}  // namespace lab

#include "lab/pictures/report_data.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "lab/names/node_names.h"
#include "lab/pictures/lanes.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

using Json = nlohmann::ordered_json;

// A page with more log lines than this gets sluggish to load: the least important ones are left out
// and counted.
constexpr size_t kMostLines = 150'000;

constexpr int kAndroidWarning = 5;

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kNsPerMicrosecond = 1'000;

// What is told once, by number.
template <typename Key>
class Index {
  public:
    size_t operator()(const Key& key) {
        const auto [entry, isNew] = mNumbers.try_emplace(key, mKeys.size());
        if (isNew) mKeys.push_back(key);
        return entry->second;
    }

    const std::vector<Key>& Keys() const { return mKeys; }

  private:
    std::map<Key, size_t> mNumbers;
    std::vector<Key> mKeys;
};

class DataWriter {
  public:
    DataWriter(const History& history, const PictureHead& head)
        : mHistory(history), mHead(head), mTickNs(IsInMs() ? kNsPerMs : kNsPerMicrosecond) {}

    Json Write() {
        Json data;
        data["title"] = mHead.title;
        data["source"] = mHead.source;
        data["device"] = mHead.device;
        data["scenes"] = mHead.scenes;
        data["findings"] = mHead.findings;
        data["ticksPerSecond"] = 1'000'000'000 / mTickNs;
        data["end"] = Ticks(mHistory.End());
        data["tracks"] = Tracks();
        data["requests"] = Requests();
        data["locks"] = Locks();
        data["lanes"] = Lanes();
        data["refusals"] = Refusals();
        data["breakthroughs"] = Breakthroughs();
        data["writes"] = Writes();
        data["lines"] = Lines();
        data["linesLeftOut"] = mLinesLeftOut;
        // Filled by what stands above.
        data["lists"] = Lists();
        data["pairs"] = Pairs();
        data["texts"] = mTexts.Keys();
        return data;
    }

  private:
    // A column of times that never fall, each as the difference from the one before.
    class Times {
      public:
        explicit Times(const DataWriter& writer) : mWriter(writer) {}

        void Add(Time at) {
            const int64_t ticks = mWriter.Ticks(at);
            mColumn.push_back(ticks - mLast);
            mLast = ticks;
        }
        Json Take() { return std::move(mColumn); }

      private:
        const DataWriter& mWriter;
        int64_t mLast = 0;
        Json mColumn = Json::array();
    };

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

    static Json NumberOrMinusOne(size_t index) {
        return index == History::kNobody ? Json(-1) : Json(index);
    }

    Json SeriesOf(const std::vector<History::Point>& points) const {
        Times times(*this);
        Json values = Json::array();
        for (const History::Point& point : points) {
            times.Add(point.at);
            values.push_back(point.khz);
        }
        return {{"t", times.Take()}, {"khz", std::move(values)}};
    }

    Json Tracks() const {
        Json tracks = Json::array();
        for (const History::Track& track : mHistory.Tracks()) {
            tracks.push_back({{"name", track.name},
                              {"label", track.label},
                              {"lowKhz", track.lowKhz},
                              {"highKhz", track.highKhz},
                              {"floor", SeriesOf(track.floor)},
                              {"ceiling", SeriesOf(track.ceiling)},
                              {"current", SeriesOf(track.current)}});
        }
        return tracks;
    }

    Json Requests() {
        Times times(*this);
        Json rows = Json::array();
        for (const History::Request& request : mHistory.Requests()) {
            times.Add(request.begin);
            rows.push_back({mTexts(request.text), mTexts(request.result), request.line,
                            mTexts(request.client), mTexts(request.command)});
        }
        return {{"t", times.Take()}, {"rows", std::move(rows)}};
    }

    Json Locks() {
        Json locks = Json::array();
        for (const History::Lock& lock : mHistory.Locks()) {
            Json terms = Json::array();
            for (const History::Term& term : lock.terms) {
                terms.push_back({Ticks(term.since), term.until ? Ticks(*term.until) : -1,
                                 mLists(term.list), NumberOrMinusOne(term.request)});
            }
            locks.push_back({lock.handle, Ticks(lock.end), static_cast<int>(lock.how),
                             NumberOrMinusOne(lock.endRequest), std::move(terms)});
        }
        return locks;
    }

    Json Lanes() {
        Json lanes = Json::array();
        for (const Lane& lane : LanesOf(mHistory)) {
            lanes.push_back({{"name", lane.name}, {"locks", lane.locks}});
        }
        return lanes;
    }

    Json Refusals() {
        Json rows = Json::array();
        for (const History::Refusal& refusal : mHistory.Refusals()) {
            rows.push_back({Ticks(refusal.at), refusal.returned, mLists(refusal.list),
                            NumberOrMinusOne(refusal.request)});
        }
        return rows;
    }

    Json Breakthroughs() const {
        Json rows = Json::array();
        for (const History::Breakthrough& row : mHistory.Breakthroughs()) {
            rows.push_back(
                {Ticks(row.since), Ticks(row.end), row.ms, NumberOrMinusOne(row.request)});
        }
        return rows;
    }

    // The plug-in's own writes: what the HAL writes follows from the locks.
    Json Writes() {
        Times times(*this);
        Json rows = Json::array();
        for (const History::Write& write : mHistory.Writes()) {
            if (write.byHal) continue;
            times.Add(write.at);
            rows.push_back({mTexts(ShortNode(write.path)), mTexts(write.before),
                            mTexts(write.after), mTexts(NodeUnit(write.path)), write.error,
                            NumberOrMinusOne(write.request)});
        }
        return {{"t", times.Take()}, {"rows", std::move(rows)}};
    }

    Json Lines() {
        const std::vector<History::Line>& lines = mHistory.Lines();
        const bool isFull = lines.size() > kMostLines;
        Times times(*this);
        Json rows = Json::array();
        for (const History::Line& line : lines) {
            if ((isFull && line.priority < kAndroidWarning) || rows.size() == kMostLines) {
                ++mLinesLeftOut;
                continue;
            }
            times.Add(line.at);
            rows.push_back({line.priority, mTexts(line.tag), mTexts(line.text),
                            NumberOrMinusOne(line.request)});
        }
        return {{"t", times.Take()}, {"rows", std::move(rows)}};
    }

    Json Lists() {
        Json lists = Json::array();
        for (const std::vector<int>& list : mLists.Keys()) {
            Json pairs = Json::array();
            for (size_t i = 0; i + 1 < list.size(); i += 2) {
                pairs.push_back(mPairs({list[i], list[i + 1]}));
            }
            lists.push_back(std::move(pairs));
        }
        return lists;
    }

    // Text, and for one that limits a frequency: track, 0 floor, 1 ceiling, 2 lifted ceiling, kHz.
    Json Pairs() {
        Json pairs = Json::array();
        for (const auto& [opcode, value] : mPairs.Keys()) {
            Json pair = {mTexts(Timeline::PairText(opcode, value, mHead.layout))};
            if (const auto bearing = mHistory.BearingOf(opcode, value)) {
                pair.push_back(bearing->track);
                pair.push_back(bearing->isFloor ? 0 : bearing->lifts ? 2 : 1);
                pair.push_back(bearing->khz);
            }
            pairs.push_back(std::move(pair));
        }
        return pairs;
    }

    const History& mHistory;
    const PictureHead& mHead;
    const int64_t mTickNs;
    Index<std::string> mTexts;
    Index<std::vector<int>> mLists;
    Index<std::pair<int, int>> mPairs;
    size_t mLinesLeftOut = 0;
};

}  // namespace

std::string ReportData(const History& history, const PictureHead& head) {
    const std::string json =
        DataWriter(history, head).Write().dump(-1, ' ', false, Json::error_handler_t::replace);
    // JSON has '<' within strings alone, where it may be escaped.
    std::string safe;
    safe.reserve(json.size());
    for (const char letter : json) {
        if (letter == '<') {
            safe += "\\u003c";
        } else {
            safe += letter;
        }
    }
    return safe;
}

}  // namespace lab

#include "lab/logcat/log_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <unordered_map>

#include "lab/logcat/log_calendar.h"
#include "lab/names/text.h"

namespace lab {
namespace {

// Of ReadCapture alone.
constexpr size_t kLongestRead = size_t{16} * 1024;

// Takes out the colours of -v color.
void DropColours(std::string& line) {
    for (size_t at = line.find("\x1b["); at != line.npos; at = line.find("\x1b[", at)) {
        const size_t end = line.find_first_not_of("0123456789;", at + 2);
        line.erase(at, end == line.npos ? end : end + 1 - at);
    }
}

// The plug-in's messages are plain ASCII; anything else came from outside and must not reach a
// terminal.
std::string Printable(std::string_view text) {
    static const std::array<char, 256> shown = [] {
        std::array<char, 256> letters{};
        letters.fill('?');
        for (char letter = ' '; letter <= '~'; ++letter)
            letters[static_cast<unsigned char>(letter)] = letter;
        return letters;
    }();
    std::string printable(text);
    for (char& letter : printable) letter = shown[static_cast<unsigned char>(letter)];
    while (!printable.empty() && printable.back() == ' ') printable.pop_back();
    return printable;
}

bool NamesPlugin(std::string_view line) {
    return line.find("tarquel: ") != line.npos || line.find("tarQuel: ") != line.npos;
}

bool BeginsAsDate(std::string_view line) {
    return line.size() >= 5 && IsDigit(line[0]) && IsDigit(line[1]) && line[2] == '-' &&
           IsDigit(line[3]) && IsDigit(line[4]);
}

// Messages that cannot stand twice in a row at one time: between two there is always another.
constexpr Message kNeverRepeated[] = {
    Message::kActionDone,  Message::kActionDoneBare, Message::kCommonLock,    Message::kLockTaken,
    Message::kLockRefused, Message::kScenePair,      Message::kEventReleased, Message::kEventCached,
    Message::kTagLock,     Message::kTagRelease,     Message::kGroupPair,     Message::kGroupTaken,
    Message::kClientPair,
};

// How many lines of the plug-in are remembered, to know them when they come again.
constexpr size_t kMostRemembered = 1 << 17;

// How many lines wait for their order at most, and for the line that tells whether they are there
// a second time.
constexpr size_t kMostHeld = 1 << 16;
constexpr size_t kMostDoubtful = 256;

constexpr size_t kMostProblems = 10'000;

bool NamesLog(std::string_view section) {
    return section.starts_with("------ SYSTEM LOG (") || section.starts_with("------ MAIN LOG (");
}

// "uid=1000(system) Binder:1147_3 expire 12 lines", as logd writes it in place of dropped lines;
// of "identical 12 lines" nothing is lost. 0 for any other text.
int64_t LostLines(std::string_view text) {
    const std::string_view word = " expire ";
    const size_t at = text.rfind(word);
    if (!text.starts_with("uid=") || at == text.npos) return 0;
    std::string_view count = text.substr(at + word.size());
    count = count.substr(0, count.find(' '));
    return ParseNumber(std::string(count)).value_or(0);
}

}  // namespace

class LogReader::Work {
  public:
    Work(Capture& capture, std::function<void(const CapturedLine&)> sink)
        : mCapture(capture), mSink(std::move(sink)), mClock(capture) {}

    void Add(std::string_view line) {
        ++mCapture.lineCount;
        if (mCapture.lineCount == 1) {
            mCapture.isWide = line.starts_with("\xFF\xFE") || line.starts_with("\xFE\xFF");
        }
        std::string plain;
        if (line.find('\x1b') != line.npos) {
            plain = line;
            DropColours(plain);
            line = plain;
        }
        if (line.empty()) {
            mLong.clear();
            return;
        }
        if (line.starts_with("--------- ")) return;  // "beginning of main", "switch to system"
        if (IsOutsideLog(line)) return;
        AddPart(line);
    }

    void Flush() {
        AcceptDoubtful();
        HandOn(Time::max());
    }

  private:
    struct Held {
        CapturedLine line;
        std::optional<LogStamp> stamp;
        bool isStranger = false;  // without the plug-in's prefix
    };

    // Of a bug report everything but the log is passed over: what looks like log lines elsewhere in
    // it is old, or there a second time.
    bool IsOutsideLog(std::string_view line) {
        if (mCapture.lineCount < 10 && line.starts_with("== dumpstate: ")) {
            mCapture.isBugReport = true;
            mCapture.unreadableCount = 0;
            return true;
        }
        if (!mCapture.isBugReport) return false;
        if (!line.starts_with("------ ")) return !mIsInLog;
        mIsInLog = NamesLog(line);
        return true;
    }

    // A line, or what is behind a head in the middle of it.
    void AddPart(std::string_view line) {
        std::optional<LogHeader> header = ParseLogHeader(line);
        if (header && header->format == LogFormat::kLong) {
            mLong = line;
            return;
        }
        if (header) {
            mLong.clear();
        } else if (!mLong.empty()) {
            header = ParseLogHeader(mLong);
            header->text = line;
        } else {
            return AddHeadless(line);
        }
        AddMessage(*header);
    }

    void AddHeadless(std::string_view line) {
        const size_t inner = FindLogHeader(line, 1);
        if (inner != line.npos) {
            mCapture.Tell("cut: another line follows in the middle of it");
            AddPart(line.substr(inner));
            return;
        }
        if (BeginsAsPlugin(line) && mCapture.formats.empty() && mCapture.foreignCount == 0) {
            mIsRaw = true;
        }
        if (mIsRaw) {
            LogHeader header;
            header.format = LogFormat::kRaw;
            header.text = line;
            AddMessage(header);
            return;
        }
        ++mCapture.unreadableCount;
        if (NamesPlugin(line)) {
            mCapture.Tell("the head of this line is missing; nothing is concluded from it");
        } else if (BeginsAsDate(line)) {
            mCapture.Tell("cut before its message");
        }
    }

    void AddMessage(LogHeader header) {
        const std::string_view whole = header.text;
        const size_t inner = NamesPlugin(whole) ? FindLogHeader(whole, 1) : whole.npos;
        header.text = whole.substr(0, inner);
        AddWhole(header, inner != whole.npos);
        if (inner != whole.npos) AddPart(whole.substr(inner));
    }

    // `isCut`: another line follows in the middle of this one.
    void AddWhole(const LogHeader& header, bool isCut) {
        const Time printed = header.stamp ? mCalendar.At(*header.stamp) : mCalendar.Last();
        if (header.stamp && mCapture.origin.empty()) SetOrigin(*header.stamp);
        if (header.stamp && header.stamp->month == 2 && header.stamp->day == 29) {
            mHasLeapDay = true;
            if (mCapture.clock) mCapture.clock->isLeapYear = true;
        }
        const bool isPlugin = BeginsAsPlugin(header.text);
        CapturedLine line;
        if (isPlugin || MayBeMessage(header.text)) line.match = MatchMessage(header.text);
        if (header.tag == "chatty") {
            if (const int64_t lost = LostLines(header.text)) {
                line.match = {Message::kLinesLost, false, false, {lost}, {}};
            }
        }
        if (!isPlugin && line.match.message == Message::kUnknown) {
            mClock.Follow(printed, header.stamp.has_value(), false);
            if (IsStub(header, isCut)) {
                mCapture.Tell("cut within its first letters; nothing is concluded from it");
            } else {
                ++mCapture.foreignCount;
            }
            return;
        }
        line.line = static_cast<int>(mCapture.lineCount);
        line.pid = header.pid;
        line.tid = header.tid;
        line.priority = header.priority;
        line.text = Printable(header.text);
        if (isCut) line.match = MessageMatch{Message::kUnknown, true, false, {}, {}};
        line.at = printed;
        if (mHasPlugin && printed < mPrevious) ++mSegment;
        mPrevious = printed;
        Held held{std::move(line), header.stamp, !isPlugin};
        if (IsRepeated(held)) return;
        if (isPlugin) {
            mPluginPids.insert(header.pid);
            mHasPlugin = true;
            mCapture.formats.insert(header.format);
            mCapture.hasUntimed = mCapture.hasUntimed || !header.stamp;
        }
        Accept(std::move(held));
    }

    // What is left of a line of the plug-in's process that was cut before it names the plug-in. A
    // line of another program that is cut tells nothing anyway.
    bool IsStub(const LogHeader& header, bool isCut) const {
        if (header.pid == 0 || mPluginPids.count(header.pid) == 0) return false;
        return isCut ||
               (!header.text.empty() && std::string_view("tarquel: ").starts_with(header.text));
    }

    // A capture that was joined from overlapping ones has blocks of lines twice, and so has a line
    // that a tool has doubled. Some lines stand several times at one time by right: they count as
    // repeated only beside others that are. A line that has been accepted is not `held` any more.
    bool IsRepeated(Held& held) {
        const CapturedLine& line = held.line;
        const size_t key = KeyOf(line);
        const auto [seen, isNew] = mSeen.try_emplace(key, mSegment);
        if (isNew) Remember(key);
        const bool isUnique = std::ranges::count(kNeverRepeated, line.match.message) > 0;
        const bool isTwice = !isNew && key == mLastKey && isUnique;
        const bool isOld = !isNew && seen->second < mSegment && (line.at < mLatest || mRepeats);
        mLastKey = key;
        mLatest = std::max(mLatest, line.at);
        if (!isOld && !isTwice) {
            mRepeats.reset();
            AcceptDoubtful();
            return false;
        }
        if (!isUnique && !mRepeats) {
            mDoubtful.push_back(std::move(held));
            if (mDoubtful.size() > kMostDoubtful) AcceptDoubtful();
            return true;
        }
        if (!mRepeats) {
            const int first = mDoubtful.empty() ? line.line : mDoubtful.front().line.line;
            mDoubtful.clear();
            // Blocks, not lines: there are few of them.
            mRepeats = mCapture.problems.size();
            mCapture.problems.push_back({first, first, "repeats earlier lines; passed over"});
        }
        mCapture.problems[*mRepeats].lastLine = line.line;
        return true;
    }

    static size_t KeyOf(const CapturedLine& line) {
        size_t key = std::hash<std::string>()(line.text);
        for (const int64_t part :
             {static_cast<int64_t>(line.at.count()), static_cast<int64_t>(line.pid),
              static_cast<int64_t>(line.tid), static_cast<int64_t>(line.priority)}) {
            key = (key ^ static_cast<size_t>(part)) * 0x9E3779B97F4A7C15 + (key >> 29);
        }
        return key;
    }

    void Remember(size_t key) {
        mRemembered.push_back(key);
        if (mRemembered.size() <= kMostRemembered) return;
        mSeen.erase(mRemembered.front());
        mRemembered.pop_front();
    }

    void AcceptDoubtful() {
        std::vector<Held> doubtful;
        doubtful.swap(mDoubtful);
        for (Held& held : doubtful) Accept(std::move(held));
    }

    void Accept(Held held) {
        CapturedLine& line = held.line;
        const Time before = mLastAccepted;
        line.at = mClock.Follow(line.at, held.stamp.has_value(), true);
        mLastAccepted = line.at;
        if (line.at < before) {
            const double seconds = std::chrono::duration<double>(before - line.at).count();
            mCapture.TellAt(
                line.line,
                fmt::format(
                    "{:.3f} s earlier than the line above it; taken in the order of the times",
                    seconds));
        }
        if (line.match.isTorn) {
            mCapture.TellAt(line.line, "cut or damaged; nothing is concluded from it");
        }
        const bool isUntimed = mCapture.origin.empty();
        const Time at = line.at;
        mHeld.emplace(at, std::move(held));  // behind those of its time
        if (isUntimed && mHeld.size() > 64) {
            HandOn(Time::max());
        } else {
            HandOn(mClock.Now() - kOrderWindow);
        }
        if (mHeld.size() > kMostHeld) HandOn(std::next(mHeld.begin(), kMostHeld / 2)->first);
    }

    // Hands on the lines up to `end`.
    void HandOn(Time end) {
        while (!mHeld.empty() && mHeld.begin()->first <= end) {
            Held held = std::move(mHeld.extract(mHeld.begin()).mapped());
            CapturedLine& line = held.line;
            const bool isOther =
                held.isStranger && (line.pid == 0 || mPluginPids.count(line.pid) == 0);
            if (isOther) {
                ++mCapture.foreignCount;
                continue;
            }
            SettleOrigin(held);
            ++mCapture.pluginCount;
            line.at = std::max(line.at - *mBase, mHandedOn);
            mHandedOn = line.at;
            mSink(line);
        }
        mCapture.end = std::max(mClock.Now() - mBase.value_or(Time(0)), mHandedOn);
    }

    // The earliest line's time is 0, whosever it is.
    void SettleOrigin(const Held& first) {
        if (mBase) return;
        mBase = std::min(first.line.at, Time(0));
        if (*mBase < Time(0) && first.stamp) SetOrigin(*first.stamp);
    }

    void SetOrigin(const LogStamp& stamp) {
        mCapture.origin = StampText(stamp);
        mCapture.onClock = OnClock(stamp);
        mCapture.clock.reset();
        if (stamp.month == 0) return;
        mCapture.clock = WallClock{stamp.year, stamp.month, stamp.day,
                                   std::chrono::microseconds(stamp.us + stamp.zoneUs), mHasLeapDay};
    }

    Capture& mCapture;
    const std::function<void(const CapturedLine&)> mSink;
    LogCalendar mCalendar;
    LogClock mClock;
    std::string mLong;  // the head of a message in long format, whose text is on the lines below
    bool mIsRaw = false;
    bool mIsInLog = false;     // of a bug report
    bool mHasLeapDay = false;  // a line is of 29 February

    std::optional<Time> mBase;  // of the first line handed on
    Time mLastAccepted = Time::min();
    Time mHandedOn{};
    std::multimap<Time, Held> mHeld;

    Time mPrevious{};            // as printed: of the plug-in's line before
    Time mLatest = Time::min();  // as printed: of the plug-in's lines so far
    bool mHasPlugin = false;
    std::set<int> mPluginPids;
    std::unordered_map<size_t, int> mSeen;  // line -> the segment in which it was first
    std::deque<size_t> mRemembered;
    int mSegment = 0;  // times run forward within one
    size_t mLastKey = 0;
    std::vector<Held> mDoubtful;
    std::optional<size_t> mRepeats;  // the problem that tells of the repeated lines above
};

LogReader::LogReader(Capture& capture, std::function<void(const CapturedLine&)> sink)
    : mWork(std::make_unique<Work>(capture, std::move(sink))) {}

LogReader::~LogReader() = default;

void LogReader::Add(std::string_view line) {
    mWork->Add(line);
}

void LogReader::Flush() {
    mWork->Flush();
}

ReadLines ReadCapture(std::istream& in, const std::string& file) {
    ReadLines capture;
    capture.file = file;
    LogReader reader(capture, [&](const CapturedLine& line) { capture.lines.push_back(line); });
    for (std::string line; std::getline(in, line);) {
        if (line.size() > kLongestRead) line.resize(kLongestRead);
        while (!line.empty() && line.back() == '\r') line.pop_back();
        reader.Add(line);
    }
    reader.Flush();
    return capture;
}

void Capture::TellAt(int line, const std::string& message) {
    const size_t count = problems.size();
    if (count < kMostProblems) problems.push_back({line, line, message});
    if (count == kMostProblems) {
        problems.push_back({line, line, "... and more lines are damaged behind it"});
    }
}

std::string ProblemText(const Capture& capture, const LogProblem& problem) {
    if (problem.line == 0) return capture.file + ": " + problem.message;
    if (problem.lastLine == problem.line) {
        return fmt::format("{}:{}: {}", capture.file, problem.line, problem.message);
    }
    return fmt::format("{}:{}-{}: {}", capture.file, problem.line, problem.lastLine,
                       problem.message);
}

}  // namespace lab

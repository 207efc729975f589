#include "lab/logcat/log_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <unordered_map>

#include "lab/names/text.h"

namespace lab {
namespace {

// Longer than any line that logcat prints; what is beyond it is passed over.
constexpr size_t kLongestLine = 16 * 1024;

constexpr int64_t kUsPerDay = INT64_C(24) * 3600 * 1'000'000;

// Reads lines through a buffer of its own.
class LineReader {
  public:
    explicit LineReader(std::istream& in) : mIn(in), mBuffer(kLongestLine + 1) {}

    // Reads up to the next newline, which is not kept. False at the end of the input.
    bool Read(std::string& line) {
        mIn.getline(mBuffer.data(), static_cast<std::streamsize>(mBuffer.size()));
        auto count = static_cast<size_t>(mIn.gcount());
        if (count == 0) return false;
        const bool isCut = mIn.fail();
        const bool hasNewline = !isCut && !mIn.eof();
        line.assign(mBuffer.data(), hasNewline ? count - 1 : count);
        if (isCut) {
            mIn.clear();
            mIn.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        }
        while (!line.empty() && line.back() == '\r') line.pop_back();
        return true;
    }

  private:
    std::istream& mIn;
    std::vector<char> mBuffer;
};

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
            letters[static_cast<size_t>(letter)] = letter;
        return letters;
    }();
    std::string printable(text);
    for (char& letter : printable) letter = shown[static_cast<unsigned char>(letter)];
    while (!printable.empty() && printable.back() == ' ') printable.pop_back();
    return printable;
}

int PriorityNumber(char letter) {
    switch (letter) {
        case 'V':
            return 2;
        case 'D':
            return 3;
        case 'W':
            return 5;
        case 'E':
            return 6;
        case 'F':
        case 'A':
            return 7;
        default:
            return 4;
    }
}

bool NamesPlugin(std::string_view line) {
    return line.find("tarquel: ") != line.npos || line.find("tarQuel: ") != line.npos;
}

bool BeginsAsDate(std::string_view line) {
    return line.size() >= 5 && IsDigit(line[0]) && IsDigit(line[1]) && line[2] == '-' &&
           IsDigit(line[3]) && IsDigit(line[4]);
}

// Messages that cannot stand twice in a row at one time: between two there is always another.
bool IsNeverRepeated(Message message) {
    switch (message) {
        case Message::kActionDone:
        case Message::kActionDoneBare:
        case Message::kCommonLock:
        case Message::kLockTaken:
        case Message::kLockRefused:
        case Message::kScenePair:
        case Message::kEventReleased:
        case Message::kEventCached:
        case Message::kTagLock:
        case Message::kTagRelease:
        case Message::kGroupPair:
        case Message::kGroupTaken:
        case Message::kClientPair:
            return true;
        default:
            return false;
    }
}

// Turns printed times into one that runs from line to line. logcat leaves the year out, so January
// after December is the next year and 1 March after 28 February is the next day, unless the year is
// printed and says otherwise.
class Calendar {
  public:
    Time At(const LogStamp& stamp) {
        const bool isDated = stamp.month != 0;
        if (isDated && mLast.month == 12 && stamp.month == 1) mDays += DaysBefore(13);
        if (isDated && mLast.month == 1 && stamp.month == 12) mDays -= DaysBefore(13);
        const bool mayLeap = stamp.year < 0 || stamp.year % 4 != 0;
        if (isDated && mayLeap && mLast.month == 2 && mLast.day == 28 && stamp.month == 3) --mDays;
        const int64_t days = isDated ? mDays + DaysBefore(stamp.month) + stamp.day : 0;
        // The first one is 0. Times of day and seconds alone have nothing in common: the second
        // kind goes on where the first was.
        if (!mHasLast || isDated != (mLast.month != 0)) {
            mShift = mNow - (days * kUsPerDay + stamp.us);
        }
        mHasLast = true;
        mLast = stamp;
        mNow = mShift + days * kUsPerDay + stamp.us;
        return std::chrono::microseconds(mNow);
    }

    // The time of the line before; 0 when no line has one.
    Time Last() const { return std::chrono::microseconds(mNow); }

  private:
    // Of a leap year: 29 February has its day.
    static int64_t DaysBefore(int month) {
        static constexpr int kDays[] = {0,   0,   31,  60,  91,  121, 152,
                                        182, 213, 244, 274, 305, 335, 366};
        return kDays[month];
    }

    LogStamp mLast;
    bool mHasLast = false;
    int64_t mDays = 0;
    int64_t mShift = 0;
    int64_t mNow = 0;
};

std::string StampText(const LogStamp& stamp) {
    const int64_t ms = stamp.us / 1000;
    if (stamp.month == 0) return fmt::format("{}.{:03} s", ms / 1000, ms % 1000);
    const int64_t day = ((ms % 86'400'000) + 86'400'000) % 86'400'000;
    return fmt::format("{:02}-{:02} {:02}:{:02}:{:02}.{:03}", stamp.month, stamp.day,
                       day / 3'600'000, day / 60'000 % 60, day / 1000 % 60, day % 1000);
}

// Since boot or since 1970; nothing without a year.
std::optional<Time> OnClock(const LogStamp& stamp) {
    const std::chrono::microseconds us(stamp.us);
    if (stamp.month == 0) return us;
    if (stamp.year < 0) return std::nullopt;
    const std::chrono::year_month_day day(std::chrono::year(stamp.year),
                                          std::chrono::month(static_cast<unsigned>(stamp.month)),
                                          std::chrono::day(static_cast<unsigned>(stamp.day)));
    return std::chrono::sys_days(day).time_since_epoch() + us;
}

// Where a run of lines begins that may be repeated ones: how many lines and problems there were.
struct Doubtful {
    size_t lines = 0;
    size_t problems = 0;
    int first = 0;
};

class Reader {
  public:
    explicit Reader(Capture& capture) : mCapture(capture) {}

    void Add(std::string& line) {
        ++mCapture.lineCount;
        if (mCapture.lineCount == 1) {
            mCapture.isWide = line.starts_with("\xFF\xFE") || line.starts_with("\xFE\xFF");
        }
        DropColours(line);
        if (line.empty()) {
            mLong.reset();
            return;
        }
        if (line.starts_with("--------- ")) return;  // "beginning of main", "switch to system"
        AddPart(line);
    }

    void Finish() {
        DropStrangers();
        std::vector<CapturedLine>& lines = mCapture.lines;
        std::stable_sort(lines.begin(), lines.end(),
                         [](const CapturedLine& a, const CapturedLine& b) { return a.at < b.at; });
        if (!lines.empty() && lines.front().at < Time(0)) {
            const Time first = lines.front().at;
            SetOrigin(mOrigins[lines.front().line]);
            for (CapturedLine& line : lines) line.at -= first;
            mEnd -= first;
        }
        mCapture.end = mEnd;
    }

  private:
    // The head of a message in long format, whose text is on the lines below.
    struct LongHead {
        LogHeader header;
        std::string tag;
    };

    void SetOrigin(const LogStamp& stamp) {
        mCapture.origin = StampText(stamp);
        mCapture.onClock = OnClock(stamp);
    }

    // A line, or what is behind a head in the middle of it.
    void AddPart(std::string_view line) {
        std::optional<LogHeader> header = ParseLogHeader(line);
        if (header && header->format == LogFormat::kLong) {
            mLong = LongHead{*header, std::string(header->tag)};
            mLong->header.tag = {};
            return;
        }
        if (header) {
            mLong.reset();
        } else if (mLong) {
            header = mLong->header;
            header->tag = mLong->tag;
            header->text = line;
        } else {
            AddHeadless(line);
            return;
        }
        AddMessage(*header);
    }

    void AddHeadless(std::string_view line) {
        const size_t inner = FindLogHeader(line, 1);
        if (inner != line.npos) {
            Tell("cut: another line follows in the middle of it");
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
            Tell("the head of this line is missing; nothing is concluded from it");
        } else if (BeginsAsDate(line)) {
            Tell("cut before its message");
        }
    }

    void AddMessage(LogHeader header) {
        const std::string_view whole = header.text;
        if (NamesPlugin(whole)) {
            const size_t inner = FindLogHeader(whole, 1);
            header.text = whole.substr(0, inner);
            AddWhole(header, inner != whole.npos);
            if (inner != whole.npos) AddPart(whole.substr(inner));
            return;
        }
        AddWhole(header, false);
    }

    // `isCut`: another line follows in the middle of this one.
    void AddWhole(const LogHeader& header, bool isCut) {
        const Time at = header.stamp ? mCalendar.At(*header.stamp) : mCalendar.Last();
        mEnd = std::max(mEnd, at);
        if (header.stamp && mCapture.origin.empty()) SetOrigin(*header.stamp);
        const bool isPlugin = BeginsAsPlugin(header.text);
        CapturedLine line;
        if (isPlugin || header.text.size() < 120) line.match = MatchMessage(header.text);
        if (!isPlugin && line.match.message == Message::kUnknown) {
            if (IsStub(header, isCut)) {
                Tell("cut within its first letters; nothing is concluded from it");
            } else {
                ++mCapture.foreignCount;
            }
            return;
        }
        line.line = static_cast<int>(mCapture.lineCount);
        line.at = at;
        line.pid = header.pid;
        line.tid = header.tid;
        line.priority = PriorityNumber(header.priority);
        line.text = Printable(header.text);
        if (isCut) line.match = MessageMatch{Message::kUnknown, true, false, {}, {}};
        const Time back = mHasPlugin && at < mPrevious ? mPrevious - at : Time(0);
        mPrevious = at;
        if (back > Time(0)) ++mSegment;
        if (IsRepeated(line)) return;
        if (back > Time(0)) TellOrder(back);
        if (line.match.isTorn) Tell("cut or damaged; nothing is concluded from it");
        if (isPlugin) {
            mPluginPids.insert(line.pid);
            mHasPlugin = true;
        } else {
            mStrangers.insert(line.line);
        }
        mLatest = std::max(mLatest, at);
        if (header.stamp && at < Time(0)) mOrigins[line.line] = *header.stamp;
        mCapture.formats.insert(header.format);
        mCapture.hasUntimed = mCapture.hasUntimed || !header.stamp;
        mCapture.lines.push_back(std::move(line));
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
    // repeated only beside others that are.
    bool IsRepeated(const CapturedLine& line) {
        const size_t key = std::hash<std::string>()(fmt::format(
            "{} {} {} {} {}", line.at.count(), line.pid, line.tid, line.priority, line.text));
        const auto [seen, isNew] = mSeen.try_emplace(key, mSegment);
        const bool isUnique = IsNeverRepeated(line.match.message);
        const bool isTwice = !isNew && key == mLastKey && isUnique;
        const bool isOld = seen->second < mSegment && (line.at < mLatest || mRepeats);
        mLastKey = key;
        if (!isOld && !isTwice) {
            mRepeats.reset();
            mDoubtful.reset();
            return false;
        }
        if (!isUnique && !mRepeats) {
            if (!mDoubtful) {
                mDoubtful = Doubtful{mCapture.lines.size(), mCapture.problems.size(), line.line};
            }
            return false;
        }
        if (!mRepeats) {
            int first = line.line;
            if (mDoubtful) {
                mCapture.lines.resize(mDoubtful->lines);
                mCapture.problems.resize(mDoubtful->problems);
                first = mDoubtful->first;
                mDoubtful.reset();
            }
            mRepeats = mCapture.problems.size();
            mCapture.problems.push_back({first, first, "repeats earlier lines; passed over"});
        }
        mCapture.problems[*mRepeats].lastLine = line.line;
        return true;
    }

    void TellOrder(Time back) {
        const double seconds = std::chrono::duration<double>(back).count();
        Tell(fmt::format("{:.3f} s earlier than the line above it; taken in the order of the times",
                         seconds));
    }

    void Tell(const std::string& message) {
        const int line = static_cast<int>(mCapture.lineCount);
        mCapture.problems.push_back({line, line, message});
    }

    // A message without the plug-in's prefix is its own only from one of its processes.
    void DropStrangers() {
        const size_t before = mCapture.lines.size();
        std::erase_if(mCapture.lines, [this](const CapturedLine& line) {
            return mStrangers.count(line.line) > 0 &&
                   (line.pid == 0 || mPluginPids.count(line.pid) == 0);
        });
        mCapture.foreignCount += before - mCapture.lines.size();
    }

    Capture& mCapture;
    Calendar mCalendar;
    std::optional<LongHead> mLong;
    std::map<int, LogStamp> mOrigins;  // of lines earlier than the first one
    Time mEnd{};
    Time mPrevious{};            // of the plug-in's line before
    Time mLatest = Time::min();  // of the plug-in's lines so far
    bool mHasPlugin = false;
    bool mIsRaw = false;
    std::set<int> mPluginPids;
    std::set<int> mStrangers;               // lines without the prefix
    std::unordered_map<size_t, int> mSeen;  // line -> the segment in which it was first
    int mSegment = 0;                       // times run forward within one
    size_t mLastKey = 0;
    std::optional<Doubtful> mDoubtful;
    std::optional<size_t> mRepeats;  // the problem that tells of the repeated lines above
};

}  // namespace

Capture ReadCapture(std::istream& in, const std::string& file) {
    Capture capture;
    capture.file = file;
    Reader reader(capture);
    LineReader lines(in);
    for (std::string line; lines.Read(line);) reader.Add(line);
    reader.Finish();
    return capture;
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

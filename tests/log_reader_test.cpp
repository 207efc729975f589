// The lines of a phone's log: their heads, the plug-in's messages, damaged captures.
#include "lab/logcat/log_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "lab/phone/events.h"
#include "lab/server/library.h"

namespace lab {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Head {
    const char* name;
    const char* line;
    LogFormat format;
    int64_t us;  // of the time; -1: none
    int pid;
    int tid;
    char priority;
    const char* tag;
    const char* text;
};

void PrintTo(const Head& head, std::ostream* out) {
    *out << head.name;
}

class LogHead : public testing::TestWithParam<Head> {};

TEST_P(LogHead, IsTakenApart) {
    const Head& row = GetParam();
    const std::optional<LogHeader> header = ParseLogHeader(row.line);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->format, row.format);
    EXPECT_EQ(header->stamp ? header->stamp->us : -1, row.us);
    EXPECT_EQ(header->pid, row.pid);
    EXPECT_EQ(header->tid, row.tid);
    EXPECT_EQ(PriorityLetter(header->priority), row.priority);
    EXPECT_EQ(header->tag, row.tag);
    EXPECT_EQ(header->text, row.text);
}

constexpr int64_t kMs = 1000;
constexpr int64_t kHour = 3'600'000 * kMs;

INSTANTIATE_TEST_SUITE_P(
    Formats, LogHead,
    testing::Values(Head{"Threadtime", "06-14 01:00:00.789  1234  1240 I tag     : a: b",
                         LogFormat::kThreadtime, kHour + 789 * kMs, 1234, 1240, 'I', "tag", "a: b"},
                    Head{"EmptyTag", "06-14 01:00:00.000     1     2 E         : text",
                         LogFormat::kThreadtime, kHour, 1, 2, 'E', "", "text"},
                    Head{"LongIds", "06-14 01:00:00.000 123456 654321 D a b: text",
                         LogFormat::kThreadtime, kHour, 123456, 654321, 'D', "a b", "text"},
                    Head{"YearAndMicroseconds", "2026-06-14 01:00:00.000123  1  2 W tag: text",
                         LogFormat::kThreadtime, kHour + 123, 1, 2, 'W', "tag", "text"},
                    Head{"Zone", "06-14 03:00:00.000 +0200  1  2 I tag: text",
                         LogFormat::kThreadtime, kHour, 1, 2, 'I', "tag", "text"},
                    Head{"Uid", "06-14 01:00:00.000  u0_a12  1  2 I tag: text",
                         LogFormat::kThreadtime, kHour, 1, 2, 'I', "tag", "text"},
                    Head{"Epoch", "         1718368496.500  1  2 I tag: text",
                         LogFormat::kThreadtime, 1718368496500 * kMs, 1, 2, 'I', "tag", "text"},
                    Head{"EmptyMessage", "06-14 01:00:00.000  1  2 I tag:", LogFormat::kThreadtime,
                         kHour, 1, 2, 'I', "tag", ""},
                    Head{"Time", "06-14 01:00:00.000 I/tag(  12): text", LogFormat::kTime, kHour,
                         12, 0, 'I', "tag", "text"},
                    Head{"Brief", "E/tag (x)( 1234): text", LogFormat::kBrief, -1, 1234, 0, 'E',
                         "tag (x)", "text"},
                    Head{"Tag", "D/tag: text", LogFormat::kTag, -1, 0, 0, 'D', "tag", "text"},
                    Head{"Long", "[ 06-14 01:00:00.000  1234: 1240 I/tag ]", LogFormat::kLong,
                         kHour, 1234, 1240, 'I', "tag", ""},
                    Head{"LongWithUid", "[ 06-14 01:00:00.000  1000: 1234: 1240 I/tag      ]",
                         LogFormat::kLong, kHour, 1234, 1240, 'I', "tag", ""}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(LogHead, IsNoneOfADamagedLine) {
    for (const char* line :
         {"", "[", "[ ]", "text", "06-14 01:00:00", "06-14 25:00:00.000  1  2 I tag: text",
          "13-14 01:00:00.000  1  2 I tag: text", "06-14 01:00:00.000  1  2 Q tag: text",
          "06-14 01:00:00.000  x  2 I tag: text", "06-14 01:00:00.000  1  2 I tag",
          "[ 06-14 01:00:00.000  1234 I/tag ]", "I/tag 12) text"}) {
        EXPECT_FALSE(ParseLogHeader(line)) << line;
    }
}

// Both ways, so that neither a changed message nor a new one goes unread.
TEST(MessageForms, AreThoseOfTheLibrary) {
    std::ifstream input(Library("").File(), std::ios::binary);
    std::ostringstream bytes;
    bytes << input.rdbuf();
    const std::string library = bytes.str();
    std::set<std::string> known;
    for (const MessageForm& form : MessageForms()) {
        known.emplace(form.text);
        EXPECT_NE(library.find(form.text), std::string::npos) << form.text;
    }
    size_t count = 0;
    for (const char* prefix : {"tarquel: ", "tarQuel: ", "tarquel S", "tarquel T", "tarquel F"}) {
        for (size_t at = library.find(prefix); at != library.npos;
             at = library.find(prefix, at + 1)) {
            std::string text = library.substr(at, library.find('\0', at) - at);
            while (!text.empty() && text.back() == '\n') text.pop_back();
            if (library[at - 1] != '\0') continue;  // the tail of another
            EXPECT_TRUE(known.count(text)) << text;
            ++count;
        }
    }
    EXPECT_GT(count, 80u);
}

TEST(MessageForms, GiveTheirNumbersAndWords) {
    const MessageMatch read =
        MatchMessage("tarquel: read node ret = 1, node = /sys/a b, config = -5");
    EXPECT_EQ(read.message, Message::kReadNode);
    EXPECT_THAT(read.numbers, ElementsAre(1, -5));
    EXPECT_THAT(read.words, ElementsAre("/sys/a b"));
    const MessageMatch group = MatchMessage(
        "tarquel: DoGroupPerfSetConfig duration = 0, tag =  69, opcodes = 0xFFFFC000, configVal = "
        "25");
    EXPECT_EQ(group.message, Message::kGroupPair);
    EXPECT_TRUE(group.onlyDebug);
    EXPECT_THAT(group.numbers, ElementsAre(0, 69, 0xFFFFC000, 25));
}

TEST(MessageForms, ToldApartFromCutDamagedAndUnknownText) {
    const char* const cut[] = {
        "tarquel: SetConfig tagLen = 1, tag = 7, va",
        "tarquel: SetConfig tagLen = 1, tag = ",
        "tarquel: SetConfig tagLen = 1, tag = 7, val = 3, mPerf = X, mThermal = 0, mEnable = 1",
        "tarquel: DoAction ret = 0, cmdId = 4098, payloadNum = 1, payl",
        "tarquel: read node ret = 1, node = /sys/devices/sys",
        "tarquel: PerfServiceAcq disable boost---low temp",
    };
    for (const char* text : cut) {
        EXPECT_TRUE(MatchMessage(text).isTorn) << text;
        EXPECT_EQ(MatchMessage(text).message, Message::kUnknown) << text;
    }
    const char* const unknown[] = {
        "tarquel: of a later version 5",
        "tarquel: DoAction ret = 0, cmdId = 4098, payloadNum = 1, payload = 0, more = 1",
        "tarquel: tag 7 is something else",
        "tarquel: invalid config value(99999999999)",
        "hello",
    };
    for (const char* text : unknown) {
        EXPECT_FALSE(MatchMessage(text).isTorn) << text;
        EXPECT_EQ(MatchMessage(text).message, Message::kUnknown) << text;
    }
}

ReadLines Read(const std::string& text) {
    std::istringstream in(text);
    return ReadCapture(in, "a.txt");
}

const std::string kHead = "06-14 12:00:00.100  1147  1163 I server  : ";
const std::string kLater = "06-14 12:00:00.200  1147  1163 I server  : ";
const std::string kLock =
    "tarquel: PerfLockAcq cmdId = 4098, oldHandle = 0, updateHandle = 7, tagLen = 3, duration = 9";
const std::string kDone = "tarquel: DoAction ret = 0, cmdId = 4098, payloadNum = 0";

struct Damage {
    const char* name;
    std::string text;
    std::vector<std::string> problems;  // as printed
    std::vector<Message> messages;      // of the plug-in's lines, as they are taken
};

void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

class DamagedCapture : public testing::TestWithParam<Damage> {};

TEST_P(DamagedCapture, IsReadAsFarAsItGoes) {
    const ReadLines capture = Read(GetParam().text);
    std::vector<std::string> problems;
    for (const LogProblem& problem : capture.problems) {
        problems.push_back(ProblemText(capture, problem));
    }
    EXPECT_EQ(problems, GetParam().problems);
    std::vector<Message> messages;
    for (const CapturedLine& line : capture.lines) messages.push_back(line.match.message);
    EXPECT_EQ(messages, GetParam().messages);
}

constexpr Message kTaken = Message::kLockTaken;
constexpr Message kEnd = Message::kActionDoneBare;
constexpr Message kNone = Message::kUnknown;

INSTANTIATE_TEST_SUITE_P(
    Rows, DamagedCapture,
    testing::Values(
        Damage{"Sound", kHead + kLock + "\n" + kLater + kDone + "\n", {}, {kTaken, kEnd}},
        Damage{"NoLastNewline", kHead + kLock, {}, {kTaken}},
        Damage{"CarriageReturns",
               kHead + kLock + "\r\n" + kLater + kDone + "\r\r\n",
               {},
               {kTaken, kEnd}},
        Damage{"OtherPrograms",
               "--------- beginning of main\n" + kHead + "hello\n" + kHead + kLock + "\n" + kHead +
                   "so says tarquel: " + kDone + "\n",
               {},
               {kTaken}},
        Damage{"Later", kHead + "tarquel: of a later version\n", {}, {kNone}},
        Damage{"Cut",
               kHead + kLock.substr(0, 60) + "\n" + kLater + kDone + "\n",
               {"a.txt:1: cut or damaged; nothing is concluded from it"},
               {kNone, kEnd}},
        Damage{"Joined",
               kHead + kLock.substr(0, 60) + kLater + kDone + "\n",
               {"a.txt:1: cut or damaged; nothing is concluded from it"},
               {kNone, kEnd}},
        Damage{"JoinedToAnother", kHead + "hel" + kLater + kDone + "\n", {}, {kEnd}},
        Damage{"StubOfThePlugin",
               kHead + kLock + "\n" + kLater + "tarq\n",
               {"a.txt:2: cut within its first letters; nothing is concluded from it"},
               {kTaken}},
        Damage{"StubJoinedToAnother",
               kHead + kLock + "\n" + kHead + "t" + kLater + kDone + "\n",
               {"a.txt:2: cut within its first letters; nothing is concluded from it"},
               {kTaken, kEnd}},
        Damage{"StubOfAnotherProgram",
               kHead + kLock + "\n06-14 12:00:00.200  99  99 I other: t\n",
               {},
               {kTaken}},
        Damage{"JoinedToATime",
               "06-14 12:0" + kHead + kLock + "\n",
               {"a.txt:1: cut: another line follows in the middle of it"},
               {kTaken}},
        Damage{"Headless",
               kHead + "hello\n" + kLock + "\n",
               {"a.txt:2: the head of this line is missing; nothing is concluded from it"},
               {}},
        Damage{"TimeOnly",
               kHead + kLock + "\n06-14 12:00\n",
               {"a.txt:2: cut before its message"},
               {kTaken}},
        Damage{"Doubled",
               kHead + kLock + "\n" + kHead + kLock + "\n",
               {"a.txt:2: repeats earlier lines; passed over"},
               {kTaken}},
        Damage{"Overlapping",
               kHead + kLock + "\n" + kLater + kDone + "\n" + kHead + kLock + "\n" + kLater +
                   kDone + "\n",
               {"a.txt:3-4: repeats earlier lines; passed over"},
               {kTaken, kEnd}},
        Damage{"Reordered",
               kLater + kDone + "\n" + kHead + kLock + "\n",
               {"a.txt:2: 0.100 s earlier than the line above it; taken in the order of the times"},
               {kTaken, kEnd}},
        Damage{"Mixed", kHead + kLock + "\nI/server( 1147): " + kDone + "\n", {}, {kTaken, kEnd}},
        Damage{"Raw", kLock + "\n" + kDone + "\n", {}, {kTaken, kEnd}},
        Damage{"Coloured", "\x1b[38;5;40m" + kHead + kLock + "\x1b[0m\n", {}, {kTaken}},
        Damage{"Long",
               "[ 06-14 12:00:00.100  1147: 1163 I/server ]\n" + kLock +
                   "\n\n[ 06-14 12:00:00.200  1147: 1163 I/server ]\n" + kDone + "\n\n",
               {},
               {kTaken, kEnd}},
        Damage{"NotPlainText", kHead + "tarquel: \xff\x01\n" + std::string(4, '\0'), {}, {kNone}},
        Damage{"UnprefixedOfThePlugin",
               kHead + "Failed to get timer\n" + kHead + kLock + "\n",
               {},
               {Message::kOther, kTaken}},
        Damage{"UnprefixedOfAnother", kHead + "Failed to get timer\n", {}, {}},
        Damage{"Empty", "", {}, {}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(CaptureTimes, RunFromTheFirstLineThroughTheNewYear) {
    const ReadLines capture =
        Read("12-31 23:59:59.900  1  2 I other: hello\n12-31 23:59:59.950  1  2 I tag: " + kLock +
             "\n01-01 00:00:00.100  1  2 I tag: " + kDone + "\n01-01 00:00:01.000  1  2 I b: c\n");
    ASSERT_EQ(capture.lines.size(), 2u);
    EXPECT_EQ(capture.lines[0].at, std::chrono::milliseconds(50));
    EXPECT_EQ(capture.lines[1].at, std::chrono::milliseconds(200));
    EXPECT_EQ(capture.end, std::chrono::milliseconds(1100));
    EXPECT_EQ(capture.origin, "12-31 23:59:59.900");
    EXPECT_EQ(capture.foreignCount, 2u);
}

TEST(CaptureTimes, CountFromTheEarliestLineWhereverItStands) {
    const ReadLines capture = Read(kLater + kDone + "\n" + kHead + kLock + "\n");
    ASSERT_EQ(capture.lines.size(), 2u);
    EXPECT_EQ(capture.lines[0].at, Time(0));
    EXPECT_EQ(capture.lines[1].at, std::chrono::milliseconds(100));
    EXPECT_EQ(capture.origin, "06-14 12:00:00.100");
}

TEST(CaptureText, IsFitForATerminal) {
    const ReadLines capture =
        Read(kHead + "tarquel: \x1b]0;x\x07\xc3\xa4" + std::string(90000, 'x'));
    ASSERT_EQ(capture.lines.size(), 1u);
    EXPECT_EQ(capture.lines[0].text.substr(0, 16), "tarquel: ?]0;x??");
    EXPECT_LT(capture.lines[0].text.size(), 20000u);
}

}  // namespace
}  // namespace lab

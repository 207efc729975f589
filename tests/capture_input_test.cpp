// A capture as it comes: packed, in a bug report, through a pipe.
#include <archive.h>
#include <archive_entry.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <functional>

#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"
#include "tests/support/lab_run.h"

namespace lab {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string Line(int second, int cmdId, int handle) {
    const std::string head = fmt::format("06-14 12:00:{:02}.000  9  11 I tag: tarquel: ", second);
    return head +
           fmt::format(
               "PerfLockAcq cmdId = {}, oldHandle = 0, updateHandle = {}, tagLen = 2, "
               "duration = 400\n",
               cmdId, handle) +
           head + fmt::format("DoAction ret = 0, cmdId = {}, payloadNum = 0\n", cmdId);
}

const std::string kLog = Line(1, 4105, 1) + Line(2, 4105, 2);

// What looks like the log elsewhere in the report is not.
const std::string kReport = "====\n== dumpstate: 2026-06-14 12:00:00\n====\n" + Line(9, 4105, 7) +
                            "------ SYSTEM LOG (logcat -v threadtime -d *:v) ------\n" + kLog +
                            "------ 0.345s was the duration of 'SYSTEM LOG' ------\n" +
                            "------ EVENT LOG (logcat -b events) ------\n" + Line(5, 4105, 9);

using Entries = std::vector<std::pair<std::string, std::string>>;

// An archive in memory; a single nameless entry is packed alone.
std::string Packed(const std::function<void(archive*)>& form, const Entries& entries) {
    std::vector<char> bytes(1 << 20);
    size_t used = 0;
    archive* writer = archive_write_new();
    form(writer);
    archive_write_open_memory(writer, bytes.data(), bytes.size(), &used);
    for (const auto& [name, text] : entries) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, name.c_str());
        archive_entry_set_size(entry, static_cast<la_int64_t>(text.size()));
        archive_entry_set_filetype(entry, AE_IFREG);
        archive_write_header(writer, entry);
        archive_write_data(writer, text.data(), text.size());
        archive_entry_free(entry);
    }
    archive_write_close(writer);
    archive_write_free(writer);
    return {bytes.data(), used};
}

std::string Zip(const Entries& entries) {
    return Packed([](archive* writer) { archive_write_set_format_zip(writer); }, entries);
}

std::string Gzip(const std::string& text) {
    const auto form = [](archive* writer) {
        archive_write_add_filter_gzip(writer);
        archive_write_set_format_raw(writer);
        archive_write_set_bytes_in_last_block(writer, 1);
    };
    return Packed(form, {{"", text}});
}

struct Way {
    const char* name;
    std::string bytes;
};

void PrintTo(const Way& way, std::ostream* out) {
    *out << way.name;
}

class CaptureWay : public testing::TestWithParam<Way> {};

TEST_P(CaptureWay, IsToldByItsFirstBytes) {
    const CaptureFile capture(GetParam().bytes);
    LogSession session(capture.Options("sm8450"));
    const ToldLog told = PlayLog(session);
    std::vector<int> handles;
    for (const Event& event : told.events) {
        const auto* acquire = std::get_if<LockAcquire>(&event.what);
        if (acquire) handles.push_back(acquire->returned);
    }
    EXPECT_THAT(handles, ElementsAre(1, 2));
    EXPECT_THAT(session.Problems(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CaptureWay,
    testing::Values(Way{"Plain", kLog}, Way{"Gzip", Gzip(kLog)}, Way{"BugReport", kReport},
                    Way{"GzippedBugReport", Gzip(kReport)},
                    Way{"TwoGzips", Gzip(Line(1, 4105, 1)) + Gzip(Line(2, 4105, 2))},
                    Way{"ZippedBugReport", Zip({{"version.txt", "2.0"},
                                                {"FS/data/old.txt", Line(9, 4105, 8)},
                                                {"bugreport-x-2026.txt", kReport},
                                                {"main_entry.txt", "bugreport-x-2026.txt"}})},
                    Way{"ZippedText", Zip({{"shots/a.png", "x"}, {"evening.txt", kLog}})}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(CaptureWays, ThatCannotBeReadSayWhy) {
    const std::pair<std::string, const char*> rows[] = {
        {Zip({{"a.txt", kLog}, {"b.txt", kLog}}), "several texts: a.txt, b.txt"},
        {Zip({{"a.png", "x"}, {"b.png", "y"}}), "no bugreport-*.txt and no other text"},
        {Zip({{"a.txt", kLog}}).substr(0, 20), "cannot be read"},
        {Gzip(""), "is empty"},
        {"== dumpstate: 2026-06-14 12:00:00\n" + kLog, "no line of a log between its headings"},
    };
    for (const auto& [bytes, message] : rows) {
        const CaptureFile capture(bytes);
        try {
            const LogSession session(capture.Options());
            ADD_FAILURE() << "accepted: " << message;
        } catch (const InputError& error) {
            EXPECT_THAT(error.what(), HasSubstr(message));
        }
    }
}

TEST(CaptureWays, DamagedAreReadAsFarAsTheyGo) {
    std::string text;
    for (int i = 1; i < 6000; ++i) text += Line(i / 100, 4105, static_cast<int>(i * 7919L % 99991));
    const std::string packed = Gzip(text);
    const CaptureFile capture(packed.substr(0, packed.size() - 100));
    LogSession session(capture.Options("sm8450"));
    PlayLog(session);
    std::vector<std::string> problems;
    for (const LogProblem& problem : session.Problems()) problems.push_back(problem.message);
    EXPECT_THAT(problems, testing::Contains(HasSubstr("the packed data is damaged")));
    EXPECT_GT(session.Log().pluginCount, 100u);
}

// A pipe and its two ends.
class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe(mEnds.data()), 0); }
    ~Pipe() {
        Close();
        close(mEnds[0]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    std::string Name() const { return "/dev/fd/" + std::to_string(mEnds[0]); }
    void Write(const std::string& text) const {
        EXPECT_EQ(write(mEnds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void Close() {
        if (mEnds[1] >= 0) close(mEnds[1]);
        mEnds[1] = -1;
    }

  private:
    std::array<int, 2> mEnds{};
};

TEST(CapturePipe, IsToldAsItComes) {
    Pipe pipe;
    pipe.Write(Line(1, 4105, 145));
    LogSession session({pipe.Name(), "sm8450", "", "", true});
    EXPECT_TRUE(session.IsLive());
    std::vector<size_t> atPauses;
    size_t requests = 0;
    session.Tell([&](LogRequest&&) { ++requests; },
                 [&] {
                     atPauses.push_back(requests);
                     if (atPauses.size() == 1) {
                         pipe.Write(Line(2, 4105, 146));
                     } else {
                         pipe.Close();
                     }
                 });
    EXPECT_THAT(atPauses, ElementsAre(1u, 2u));
    EXPECT_EQ(session.Log().pluginCount, 4u);
    EXPECT_EQ(session.Earlier().FirstHandle(), 145);
}

TEST(CapturePipe, IsReadWholeWhereItsEndCounts) {
    Pipe pipe;
    pipe.Write(kLog);
    pipe.Close();
    LogSession session({pipe.Name(), "sm8450", "", "", false});
    EXPECT_FALSE(session.IsLive());
    EXPECT_EQ(session.Log().pluginCount, 4u);
    EXPECT_EQ(PlayLog(session).requests.size(), 2u);
}

TEST(InputText, OfAPipeIsThereAgain) {
    Pipe pipe;
    pipe.Write("a: 1\n");
    pipe.Close();
    EXPECT_TRUE(IsInput(pipe.Name()));
    EXPECT_EQ(ReadInput(pipe.Name()), "a: 1\n");
    EXPECT_EQ(ReadInput(pipe.Name()), "a: 1\n");
    EXPECT_FALSE(IsInput("/"));
    EXPECT_FALSE(IsInput("/nonexistent"));
    EXPECT_THROW(ReadInput("/"), InputError);
    EXPECT_THROW(ReadInput("/nonexistent"), InputError);
}

}  // namespace
}  // namespace lab

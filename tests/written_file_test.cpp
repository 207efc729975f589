// What the program writes to: never over what it reads, whole or not at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <map>

#include "lab/phone/device_profile.h"
#include "lab/pictures/output_file.h"
#include "tests/support/lab_program.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// A folder with files to be read, gone with the test.
class WrittenFile : public testing::TestWithParam<std::pair<const char*, const char*>> {
  protected:
    WrittenFile() : mFolder(testing::TempDir() + std::to_string(getpid()) + "written") {
        const fs::path data = DataFolder();
        fs::create_directory(mFolder);
        fs::copy(data / "captures/hot_game.txt", mFolder / "log.txt");
        fs::copy(data / "scenes/sm8450.xml", mFolder / "s.xml");
        fs::copy(data / "devices/sm8450.yaml", mFolder / "d.yaml");
        std::ofstream(mFolder / "a.yaml")
            << "device: d.yaml\nscenes: s.xml\nsteps:\n- {do: touch}\n";
        fs::create_symlink("log.txt", mFolder / "link");
        fs::create_hard_link(mFolder / "log.txt", mFolder / "twin");
        fs::create_symlink("later.html", mFolder / "dangling");
        fs::create_directory(mFolder / "folder");
        mBefore = Content();
    }
    ~WrittenFile() override { fs::remove_all(mFolder); }

    static Ran RunIn(const fs::path& folder, const std::string& arguments) {
        return RunLab(arguments, "cd '" + folder.string() + "' && ");
    }
    Ran Run(const std::string& arguments) const { return RunIn(mFolder, arguments); }

    std::map<std::string, std::string> Content() const {
        std::map<std::string, std::string> content;
        for (const auto& entry : fs::directory_iterator(mFolder)) {
            content[entry.path().filename()] = entry.is_directory() ? "" : ReadFile(entry.path());
        }
        return content;
    }

    const fs::path mFolder;
    std::map<std::string, std::string> mBefore;
};

TEST_P(WrittenFile, IsRefusedBeforeAnythingIsWritten) {
    const Ran ran = Run(GetParam().first);
    EXPECT_EQ(ran.code, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.errors, testing::HasSubstr(GetParam().second));
    EXPECT_EQ(Content(), mBefore);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WrittenFile,
    testing::Values(
        std::pair{"logcat log.txt --report log.txt", "log.txt: this is the capture that is read"},
        std::pair{"logcat log.txt --trace link", "link: this is the capture log.txt that is read"},
        std::pair{"logcat link --report folder/../twin",
                  "the capture link that is read, and --rep"},
        std::pair{"logcat - --report twin <log.txt", "twin: this is the capture standard input"},
        std::pair{"logcat log.txt --scenes s.xml --trace s.xml", "this is the scene file that"},
        std::pair{"run a.yaml --report ./a.yaml", "this is the scenario a.yaml that is read"},
        std::pair{"run a.yaml --logcat d.yaml", "this is the device's profile that is read"},
        std::pair{"run first_seconds a.yaml --junit s.xml", "this is the scene file that is"},
        std::pair{"run . --junit a.yaml", "this is the scenario ./a.yaml that is read"},
        std::pair{"run a.yaml --report x --trace ./x", "--trace and --report would both write"},
        std::pair{"run a.yaml --report dangling --junit later.html", "--report and --junit would"},
        std::pair{"run a.yaml --watch --report x --trace x.watched.js", "--trace and --watch"},
        std::pair{"record a.yaml -o a.yaml", "this is the scenario that is read, and --output"},
        std::pair{"record a.yaml >>s.xml", "standard output: this is the scene file s.xml"},
        std::pair{"record --logcat log.txt -o link", "link: this is the capture log.txt that"},
        std::pair{"run a.yaml --report log.txt >>log.txt", "standard output and --report would"},
        std::pair{"run a.yaml --report folder", "folder: cannot be written: Is a directory"},
        std::pair{"run a.yaml --report no/x", "no/x: cannot be written: No such file"}));

TEST_F(WrittenFile, KeepsAnOldFileUntilTheNewOneIsWhole) {
    const fs::path old = mFolder / "old.html";
    std::ofstream(old) << "old";
    fs::permissions(old, fs::perms(0640));
    fs::create_symlink("old.html", mFolder / "page");
    // A step that cannot be read ends the run; the limit of a file's size a run's writing.
    std::ofstream(mFolder / "wrong.yaml") << "steps:\n- {dou: touch}\n";
    const auto before = Content();
    EXPECT_EQ(Run("run wrong.yaml --report page --trace new.json").code, 2);
    EXPECT_EQ(Content(), before);
    const Ran full = RunLab("run -q a.yaml --report page --trace /dev/null",
                            "cd '" + mFolder.string() + "' && ulimit -f 8 && ");
    EXPECT_EQ(full.code, 2);
    EXPECT_THAT(full.errors, testing::HasSubstr("page: cannot be written: File too large"));
    EXPECT_EQ(Content(), before);

    EXPECT_EQ(Run("run -q a.yaml --report page").code, 0);
    EXPECT_TRUE(fs::is_symlink(mFolder / "page"));
    EXPECT_THAT(ReadFile(old), testing::HasSubstr("</html>"));
    EXPECT_EQ(fs::status(old).permissions(), fs::perms(0640));
}

TEST_F(WrittenFile, GoesStraightToWhatIsNoFile) {
    const Ran twice = Run("run -q a.yaml --report /dev/null --trace /dev/null");
    EXPECT_EQ(twice.code, 0) << twice.errors;
    // What was printed before stands before, also where standard output is a file.
    const Ran mixed = Run("run -q a.yaml --debug --logcat /dev/stdout >out.txt");
    EXPECT_EQ(mixed.code, 0) << mixed.errors;
    const std::string text = ReadFile(mFolder / "out.txt");
    EXPECT_THAT(text, testing::StartsWith("a.yaml\n"));
    EXPECT_LT(text.find("Nothing leaked"), text.find("beginning of main"));
    const Ran piped = Run("record a.yaml -o /dev/stdout | cat");
    EXPECT_THAT(piped.out, testing::HasSubstr("do: touch"));
}

// In a child, for the signal ends it.
TEST_F(WrittenFile, LeavesNothingWhenASignalEndsTheProgram) {
    for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
        const auto write = [&] {
            std::signal(signal, SIG_DFL);
            OutputFile first(mFolder / "new");
            OutputFile second(mFolder / "s.xml");
            second.Fill([&](std::ostream& out) {
                out << "half";
                std::raise(signal);
            });
        };
        EXPECT_EXIT(write(), testing::KilledBySignal(signal), "");
        EXPECT_EQ(Content(), mBefore);
    }
}

}  // namespace
}  // namespace lab

#include "lab/logcat/log_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>

#include "lab/names/text.h"
#include "lab/server/inputs.h"

namespace lab {
namespace {

// Where the log does not show which one it is.
constexpr const char* kUsualDevice = "sm8450";

constexpr const char* kHowToTurnOn =
    "Turn them on and capture again: call SetDebug(true) through the policy server, or set the\n"
    "property ro.logsystem.usertype to another value than 1 and 6 before the server starts\n"
    "(docs/logcat.md).";

Capture Load(const std::string& name) {
    if (name == "-") return ReadCapture(std::cin, "-");
    const std::string file = FindCapture(name);
    errno = 0;
    std::ifstream input(file, std::ios::binary);
    // A folder opens and fails at the first read only.
    if (!input.is_open() || (input.peek() == std::ifstream::traits_type::eof() && errno != 0)) {
        throw InputError(file, 0, 0, "cannot be read: " + std::generic_category().message(errno));
    }
    return ReadCapture(input, file);
}

Capture LoadLog(const std::string& name) {
    Capture capture = Load(name);
    if (capture.lineCount == 0) throw InputError(capture.file, 0, 0, "is empty");
    if (capture.isWide) {
        throw InputError(
            capture.file, 1, 1,
            "this text is UTF-16, as the > of some shells writes it; save it as UTF-8, "
            "or capture with 'adb logcat' in another shell");
    }
    if (capture.lines.empty() && capture.foreignCount == 0) {
        throw InputError(
            capture.file, 0, 0,
            fmt::format("this is no capture of a log: none of its {} lines has the form of a line "
                        "that logcat prints with -v threadtime, brief or long",
                        capture.lineCount));
    }
    return capture;
}

SceneFile LoadScenes(const std::string& named, const DeviceProfile& device) {
    if (!named.empty()) return SceneFile::Load(FindSceneFile(named));
    std::error_code ignored;
    const std::string shipped = DataFolder() + "/scenes/" + device.name + ".xml";
    if (std::filesystem::is_regular_file(shipped, ignored)) return SceneFile::Load(shipped);
    return ScenesOfClusters(device);
}

}  // namespace

std::string FindCapture(const std::string& name) {
    if (name == "-") return name;
    std::error_code ignored;
    if (std::filesystem::exists(name, ignored)) return name;
    const std::string shipped = DataFolder() + "/captures/" + name;
    if (std::filesystem::is_regular_file(shipped, ignored)) return shipped;
    if (std::filesystem::is_regular_file(shipped + ".txt", ignored)) return shipped + ".txt";
    return name;
}

LogSession::LogSession(const Options& options)
    : mCapture(LoadLog(options.capture)),
      mDevice(LoadDeviceProfile(ChooseDevice(options))),
      mScenes(LoadScenes(options.scenes, mDevice)),
      mPhone(mDevice),
      mLibrary(options.library),
      mLists(mPhone, mLibrary, mScenes),
      mStory(TellStory(mCapture, KnownNodes(mDevice), mScenes, mLists)) {
    const std::optional<Layout> shown = LayoutOf(mCapture);
    if (shown && *shown != mScenes.ClusterLayout()) {
        const char* const count = *shown == Layout::kTwoClusters ? "two" : "three";
        mStory.problems.insert(
            mStory.problems.begin(),
            {0, 0,
             fmt::format("this log is of a device with {} clusters, which {} and {} are not; name "
                         "others with --device and --scenes",
                         count, mDevice.name, mScenes.File())});
    }
}

std::string LogSession::ChooseDevice(const Options& options) {
    if (!options.device.empty()) return options.device;
    const std::string shown = DeviceOf(mCapture);
    mIsDeviceGuessed = shown.empty();
    return shown.empty() ? kUsualDevice : shown;
}

std::vector<LogProblem> LogSession::Problems() const {
    std::vector<LogProblem> problems = mCapture.problems;
    problems.insert(problems.end(), mStory.problems.begin(), mStory.problems.end());
    std::stable_sort(problems.begin(), problems.end(),
                     [](const LogProblem& a, const LogProblem& b) { return a.line < b.line; });
    return problems;
}

std::string LogSession::DetailAdvice() const {
    if (mCapture.lines.empty()) {
        return fmt::format(
            "None of the {} log lines is the plug-in's. With its debug lines switched off it "
            "writes "
            "errors\nonly, and none when all goes well.\n{}",
            mCapture.foreignCount, kHowToTurnOn);
    }
    if (mStory.detail == LogDetail::kErrors) {
        return fmt::format(
            "The log has the plug-in's errors only: its debug lines are switched off, so that "
            "requests,\nlocks and node writes cannot be seen.\n{}",
            kHowToTurnOn);
    }
    if (mStory.detail == LogDetail::kVersion) {
        return "The log has no line that only SetDebug(true) turns on: payloads, what clients "
               "asked "
               "for and locks\nlet go are inferred or missing.";
    }
    return "";
}

std::string LogSession::UnknownCommands() const {
    if (mStory.unknownCommands.empty()) return "";
    std::vector<std::string> ids;
    for (int id : mStory.unknownCommands) ids.push_back(std::to_string(id));
    return fmt::format(
        "{} has no command {}: what they hold is unknown; give the phone's own scene "
        "file with --scenes",
        mScenes.File(), Join(ids));
}

}  // namespace lab

#include "lab/logcat/log_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "lab/logcat/story_teller.h"
#include "lab/names/text.h"
#include "lab/server/inputs.h"
#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

// Where the log does not show which one it is.
constexpr const char* kUsualDevice = "sm8450";

// How many of the plug-in's lines show what phone a capture is of that cannot be read again.
constexpr size_t kBeginning = 400;

constexpr const char* kHowToTurnOn =
    "Turn them on and capture again: call SetDebug(true) through the policy server, or set the\n"
    "property ro.logsystem.usertype to another value than 1 and 6 before the server starts\n"
    "(docs/logcat.md).";

SceneFile LoadScenes(const std::string& named, const DeviceProfile& device) {
    if (!named.empty()) return SceneFile::Load(FindSceneFile(named));
    std::error_code ignored;
    const std::string shipped = DataFolder() + "/scenes/" + device.name + ".xml";
    if (std::filesystem::is_regular_file(shipped, ignored)) return SceneFile::Load(shipped);
    return ScenesOfClusters(device);
}

}  // namespace

std::string FindCapture(const std::string& name) {
    std::error_code ignored;
    if (IsInput(name) || std::filesystem::exists(name, ignored)) return name;
    const std::string shipped = DataFolder() + "/captures/" + name;
    if (std::filesystem::is_regular_file(shipped, ignored)) return shipped;
    if (std::filesystem::is_regular_file(shipped + ".txt", ignored)) return shipped + ".txt";
    return name;
}

LogSession::LogSession(const Options& options)
    : mDevice(LoadDeviceProfile(ChooseDevice(options))),
      mScenes(LoadScenes(options.scenes, mDevice)),
      mPhone(mDevice),
      mLibrary(options.library),
      mLists(mPhone, mLibrary, mScenes) {
    mStory.detail = mEvidence.Detail();
    CheckLayout();
}

void LogSession::Open(const Options& options) {
    const std::string file = FindCapture(options.capture);
    mInput = std::make_unique<CaptureInput>(
        file, options.isLive ? CaptureInput::Access::kOnce : CaptureInput::Access::kTwice);
    mCapture.file = file;
    mCapture.entry = mInput->Entry();
    const auto handOn = [this](const CapturedLine& line) { mSink(line); };
    mReader = std::make_unique<LogReader>(mCapture, handOn);
    Survey();
    CheckLog();
    if (IsLive()) return;
    // What is known of the capture is known from now on.
    mInput->Rewind();
    mReader = std::make_unique<LogReader>(mCaptureAgain, handOn);
}

// False at the end of the capture.
bool LogSession::ReadLine() {
    std::string_view line;
    switch (mInput->ReadLine(line)) {
        case CaptureInput::Reading::kLine:
            mReader->Add(line);
            return true;
        case CaptureInput::Reading::kIdle:
            mReader->Flush();
            mPause();
            return true;
        case CaptureInput::Reading::kEnd:
            break;
    }
    if (!mInput->Damage().empty()) {
        const int last = static_cast<int>(mCapture.lineCount);
        mDamage = {{last, last, mInput->Damage()}};
    }
    mReader->Flush();
    return false;
}

// Looks through the whole capture; where it cannot be read again, through its beginning, which is
// kept: until the device and the switches are known, a pause, or so many lines.
void LogSession::Survey() {
    bool isPaused = false;
    const bool isKept = !mInput->CanRewind();
    mPause = [&] { isPaused = mCapture.pluginCount > 0; };
    mSink = [this, isKept](const CapturedLine& line) {
        mEvidence.Add(line);
        if (isKept) mBeginning.push_back(line);
    };
    while (ReadLine()) {
        if (isKept && (isPaused || mBeginning.size() >= kBeginning)) break;
    }
}

void LogSession::CheckLog() const {
    const Capture& log = mCapture;
    if (log.lineCount == 0) throw InputError(log.file, 0, 0, "is empty");
    if (log.isWide) {
        throw InputError(
            log.file, 1, 1,
            "this text is UTF-16, as the > of some shells writes it; save it as UTF-8, "
            "or capture with 'adb logcat' in another shell");
    }
    if (log.pluginCount > 0 || log.foreignCount > 0) return;
    if (log.isBugReport) {
        throw InputError(log.file, 0, 0,
                         "this bug report has no line of a log between its headings "
                         "'------ SYSTEM LOG' and the next");
    }
    throw InputError(
        log.file, 0, 0,
        fmt::format("this is no capture of a log: none of its {} lines has the form of a line "
                    "that logcat prints with -v threadtime, brief or long",
                    log.lineCount));
}

void LogSession::CheckLayout() {
    const std::optional<Layout> shown = mEvidence.ClusterLayout();
    if (!shown || *shown == mScenes.ClusterLayout() || !mOwnProblems.empty()) return;
    const char* const count = *shown == Layout::kTwoClusters ? "two" : "three";
    mOwnProblems.push_back(
        {0, 0,
         fmt::format("this log is of a device with {} clusters, which {} and {} are not; name "
                     "others with --device and --scenes",
                     count, mDevice.name, mScenes.File())});
}

void LogSession::Tell(const Listener& listener) {
    const KnownNodes nodes(mDevice);
    StoryTeller teller(nodes, mScenes, mLists, mStory,
                       [&](LogRequest&& request) { listener.request(std::move(request)); });
    for (const CapturedLine& line : mBeginning) teller.Add(line);
    mBeginning = {};
    mSink = [&](const CapturedLine& line) {
        if (IsLive()) {
            mEvidence.Add(line);
            mStory.detail = mEvidence.Detail();
        }
        teller.Add(line);
    };
    mPause = [&] {
        teller.Flush();
        listener.pause();
    };
    while (ReadLine()) {
    }
    teller.Flush();
    CheckLayout();
}

std::string LogSession::ChooseDevice(const Options& options) {
    Open(options);
    if (!options.device.empty()) return options.device;
    const std::string shown = mEvidence.Device();
    mIsDeviceGuessed = shown.empty();
    return shown.empty() ? kUsualDevice : shown;
}

std::vector<LogProblem> LogSession::Problems() const {
    std::vector<LogProblem> problems = mOwnProblems;
    problems.insert(problems.end(), mDamage.begin(), mDamage.end());
    problems.insert(problems.end(), mCapture.problems.begin(), mCapture.problems.end());
    problems.insert(problems.end(), mStory.problems.begin(), mStory.problems.end());
    std::stable_sort(problems.begin(), problems.end(),
                     [](const LogProblem& a, const LogProblem& b) { return a.line < b.line; });
    return problems;
}

std::string LogSession::DetailAdvice() const {
    if (mCapture.pluginCount == 0) {
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

#include "lab/logcat/log_session.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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

// How many of the plug-in's lines show what phone a capture is of that cannot be read again.
constexpr size_t kBeginning = 400;

// How many locks from before a capture a sentence names.
constexpr size_t kMostNamed = 8;

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
    CheckPhone();
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
    const CaptureInput::Reading reading = mInput->ReadLine(line);
    if (reading == CaptureInput::Reading::kLine) {
        mReader->Add(line);
        return true;
    }
    mReader->Flush();
    if (reading == CaptureInput::Reading::kIdle) {
        mPause();
        return true;
    }
    if (!mInput->Damage().empty()) {
        const int last = static_cast<int>(mCapture.lineCount);
        mDamage = {{last, last, mInput->Damage()}};
    }
    return false;
}

// Looks through the whole capture; where it cannot be read again, through its beginning, which is
// kept: until the device and the switches are known, a pause, or so many lines.
void LogSession::Survey() {
    const bool isKept = !mInput->CanRewind();
    mPause = [this] { mIsPaused = mCapture.pluginCount > 0; };
    mSink = [this, isKept](const CapturedLine& line) {
        mEvidence.Add(line);
        mEarlier.Add(line);
        if (isKept) mBeginning.push_back(line);
    };
    while (ReadLine()) {
        if (isKept && (mIsPaused || mBeginning.size() >= kBeginning)) break;
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

// What of the log contradicts the device and the scene file, by what is known so far.
void LogSession::CheckPhone() {
    mOwnProblems.clear();
    const std::optional<Layout> shown = mEvidence.ClusterLayout();
    if (shown && *shown != mScenes.ClusterLayout()) {
        const char* const count = *shown == Layout::kTwoClusters ? "two" : "three";
        mOwnProblems.push_back(
            {0, 0,
             fmt::format("this log is of a device with {} clusters, which {} and {} are not; name "
                         "others with --device and --scenes",
                         count, mDevice.name, mScenes.File())});
    }
    for (LogProblem problem : mEvidence.Contradictions(mDevice)) {
        problem.message += "; name the phone's own device with --device";
        mOwnProblems.push_back(std::move(problem));
    }
}

void LogSession::Tell(const std::function<void(LogRequest&&)>& request,
                      const std::function<void()>& pause) {
    const KnownNodes nodes(mDevice);
    StoryTeller teller(nodes, mScenes, mLists, mStory, request);
    teller.BeginWith(mEarlier.All(), mEarlier.IsWhole());
    for (const CapturedLine& line : mBeginning) teller.Add(line);
    mBeginning = {};
    mSink = [&](const CapturedLine& line) {
        if (IsLive()) {
            mEvidence.Add(line);
            mEarlier.Add(line);
            mStory.detail = mEvidence.Detail();
        }
        teller.Add(line);
    };
    mPause = [&] {
        teller.Flush();
        pause();
    };
    if (IsLive() && mIsPaused) mPause();
    while (ReadLine()) {
    }
    teller.Flush();
    CheckPhone();
}

std::string LogSession::ChooseDevice(const Options& options) {
    Open(options);
    if (!options.device.empty()) return options.device;
    const auto [nearest, mismatches] = mEvidence.NearestDevice();
    mIsDeviceGuessed = nearest.empty() || mismatches > 0;
    return nearest.empty() ? kUsualDevice : nearest;
}

std::vector<LogProblem> LogSession::Problems() const {
    std::vector<LogProblem> problems = mOwnProblems;
    for (const auto* more : {&mDamage, &mCapture.problems, &mStory.problems}) {
        problems.insert(problems.end(), more->begin(), more->end());
    }
    std::stable_sort(problems.begin(), problems.end(),
                     [](const LogProblem& a, const LogProblem& b) { return a.line < b.line; });
    return problems;
}

std::string LogSession::DetailAdvice() const {
    if (mCapture.pluginCount == 0) {
        return fmt::format(
            "None of the {} log lines is the plug-in's. With its debug lines switched off it "
            "writes errors\nonly, and none when all goes well.\n{}",
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
               "asked for and locks\nlet go are inferred or missing.";
    }
    return "";
}

std::vector<EarlierLock> LogSession::LocksBefore() {
    std::vector<EarlierLock> locks = mEarlier.All();
    for (EarlierLock& lock : locks) {
        if (lock.kind == EarlierLock::Kind::kTag) continue;
        for (const auto& element : mLists.Elements(lock.key, 0, std::nullopt)) {
            const bool isIts = element.index == lock.index;
            lock.isCertain = lock.isCertain || (isIts && element.durationMs == 0);
        }
    }
    return locks;
}

std::vector<std::string> LogSession::Unknowns() {
    std::vector<std::string> unknowns;
    if (mStory.detail == LogDetail::kErrors || mCapture.pluginCount == 0) return unknowns;
    if (!mEarlier.IsWhole()) unknowns.push_back(BeforeText());
    if (const std::string asks = AsksText(); !asks.empty()) unknowns.push_back(asks);
    if (mEvidence.LostLines() > 0) {
        unknowns.push_back(fmt::format(
            "The logger dropped {} lines of the plug-in's process: what they told is missing, and "
            "what was held before may have been let go there.",
            mEvidence.LostLines()));
    }
    const bool hasThreads =
        std::all_of(mCapture.formats.begin(), mCapture.formats.end(), [](LogFormat format) {
            return format == LogFormat::kThreadtime || format == LogFormat::kLong;
        });
    if (!hasThreads) {
        unknowns.push_back(
            "The lines do not tell their threads: where requests overlap, what belongs to which "
            "may be mixed up.");
    }
    for (const LogProblem& remark : mCapture.clockRemarks) {
        unknowns.push_back(fmt::format("Line {}: {}.", remark.line, remark.message));
    }
    return unknowns;
}

std::string LogSession::BeforeText() {
    const std::string begin = mCapture.origin.empty() ? "the first line" : mCapture.origin;
    std::string text = fmt::format("Locks taken before {} are not in this capture", begin);
    if (mEarlier.FirstHandle() > 1) {
        text += fmt::format(" (its first is number {}: {} came before)", mEarlier.FirstHandle(),
                            mEarlier.FirstHandle() - 1);
    }
    std::vector<std::string> held;
    for (const EarlierLock& lock : LocksBefore()) {
        const std::string name = lock.handle > 0 ? fmt::format("lock {}", lock.handle) : "a lock";
        const SceneCommand* command = mScenes.Find(lock.key);
        const std::string of = lock.kind == EarlierLock::Kind::kTag
                                   ? " of " + TagLabel(lock.key, mScenes.ClusterLayout())
                               : command ? ", taken by on " + command->Label()
                                         : fmt::format(", taken by on command {}", lock.key);
        held.push_back(fmt::format("{}{} (line {} shows it{})", name, of, lock.line,
                                   lock.isCertain ? "" : "; its time may have run out before"));
        if (held.size() == kMostNamed && mEarlier.All().size() > kMostNamed) {
            held.back() += fmt::format(" and {} more", mEarlier.All().size() - kMostNamed);
            break;
        }
    }
    if (held.empty()) return text + ", nor what they hold.";
    return text + "; at least these were held: " + fmt::format("{}", fmt::join(held, "; ")) + ".";
}

std::string LogSession::AsksText() const {
    std::vector<std::string> asks;
    for (const EarlierAsk& ask : mEarlier.Asks()) {
        const TagFacts* facts = FindTagFacts(ask.tag, mScenes.ClusterLayout());
        asks.push_back(fmt::format(
            "{} by {}: {} (line {})", TagLabel(ask.tag, mScenes.ClusterLayout()),
            ClientLabel(ask.client),
            facts ? WithUnit(ask.value, facts->unit) : std::to_string(ask.value), ask.line));
    }
    return asks.empty() || mEarlier.IsWhole()
               ? ""
               : "Asked for before the capture begins: " + Join(asks) + ".";
}

std::string LogSession::DoubtOf(const BookedLock& lock, int contradictedAt) const {
    if (mStory.lastLoss && mStory.lastLoss->at >= lock.renewed) {
        return fmt::format("lines are missing at line {}, behind which it may be gone",
                           mStory.lastLoss->line);
    }
    if (contradictedAt > 0) {
        return fmt::format("line {} reads another value than it makes", contradictedAt);
    }
    if (mStory.detail == LogDetail::kVersion && !lock.until && lock.isListAssumed) {
        return "this log does not tell when an event lets its lock go";
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

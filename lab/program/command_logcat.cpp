// tarquel-lab logcat: reads a capture of a phone's log and prints its timeline.
#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "lab/logcat/log_json.h"
#include "lab/logcat/log_player.h"
#include "lab/logcat/log_session.h"
#include "lab/names/node_names.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"
#include "lab/pictures/picture_files.h"
#include "lab/program/commands.h"
#include "lab/program/input_files.h"
#include "lab/server/scenario.h"
#include "lab/server/timeline.h"

namespace lab {
namespace {

using Json = nlohmann::ordered_json;

struct LogcatOptions {
    LogSession::Options session;
    std::string trace;
    std::string report;
    bool json = false;
    bool verbose = false;
};

constexpr size_t kMostProblems = 20;

constexpr char kLogcatFooter[] =
    R"(CAPTURE is what logcat printed (-v threadtime, time, brief, tag or long; year, UTC, usec, uid
and the like are understood), packed with gzip, xz or zstd or not, a bugreport.zip as it is, the
name of a capture that ships with the lab, or - for standard input, of which each request is told
as it ends:
  adb logcat | tarquel-lab logcat -
  tarquel-lab logcat evening.txt --device my_phone.yaml --scenes my_scenes.xml
  tarquel-lab logcat bugreport.zip --json

What the capture cannot tell is said: locks that were taken before it, lines that are missing,
what stood in a node (?); and what in it contradicts the scene file or the device.
Requests, locks and the plug-in's node writes are the log's. What a command's lock holds comes
from the scene file, what the perf HAL makes of the locks from the lab's device: name the
phone's own. With the plug-in's debug lines switched off a log tells of errors only; the report
says how to turn them on.
Signs: + lock taken, ~ renewed, - released or expired, = node written, @ timer, ! trouble.
Returns 0 when all is well, 1 for findings (damaged or missing lines, contradictions, a refused
lock, a log that tells nothing), 2 when a file or the usage is at fault.)";

class LogcatReport {
  public:
    LogcatReport(LogSession& session, const LogcatOptions& options)
        : mSession(session),
          mOptions(options),
          mLayout(session.Scenes().ClusterLayout()),
          mPaint(Paint::ForTerminal(STDOUT_FILENO)),
          mMoments(session.Log().clock,
                   session.IsLive() ? std::nullopt : std::optional(session.Log().end)),
          mBook(session.Device(), session.Scenes(), session.GetPhone().GetKernel()),
          mTimeline(std::cout, mBook, {options.verbose, mPaint, mMoments}),
          mPictures(options.trace, options.report),
          mPlayer(session.GetPhone(), [this](const Event& event) { Observe(event); }) {}

    int Print() {
        if (!mOptions.json) PrintHead();
        mPictures.Begin(mSession.Device(), mBook);
        mSession.Tell([this](LogRequest&& request) { mPlayer.Play(request); },
                      [] { std::cout << std::flush; });
        mPlayer.Finish(mSession.Log().end);
        if (mOptions.json) {
            PrintJson();
        } else {
            PrintProblems();
            if (mSession.Log().pluginCount > 0) PrintEnd();
        }
        mPictures.End(mSession.GetPhone().GetClock().Now(), [this] { return HeadOfPictures(); });
        const bool tellsNothing =
            mSession.Log().pluginCount == 0 || mSession.Story().detail == LogDetail::kErrors;
        return tellsNothing || mRefused > 0 || !mSession.Problems().empty() ? kFindings : kFine;
    }

  private:
    void Observe(const Event& event) {
        mBook.Observe(event);
        const auto* acquire = std::get_if<LockAcquire>(&event.what);
        if (acquire && !acquire->IsGranted()) ++mRefused;
        mPictures.Observe(event);
        if (mOptions.json) {
            mEvents.push_back(CapturedEventJson(event));
            return;
        }
        Event shown = event;
        auto* begin = std::get_if<RequestBegin>(&shown.what);
        // Without times the line is what tells a reader where he is.
        if (begin && mSession.Log().origin.empty()) {
            begin->text += fmt::format(" (line {})", begin->line);
        }
        mTimeline.Observe(shown);
    }

    PictureHead HeadOfPictures() {
        const auto nameOf = [](const std::string& file) {
            return std::filesystem::path(file).filename().string();
        };
        const std::string source = nameOf(mSession.Log().file);
        std::vector<std::string> notes = mSession.Unknowns();
        for (std::string& note : Notes()) notes.push_back(std::move(note));
        std::vector<RunFinding> findings;
        for (std::string& note : notes) findings.push_back({.text = std::move(note)});
        return {source,
                "capture " + source,
                mSession.Device().name,
                nameOf(mSession.Scenes().File()),
                mLayout,
                std::move(findings),
                mSession.Log().onClock.value_or(Time(0)),
                mMoments};
    }

    std::string FormatsText() const {
        std::string text;
        for (LogFormat format : mSession.Log().formats) {
            text += std::string(text.empty() ? "" : " and ") + FormatName(format);
        }
        return text;
    }

    std::string TimesText() const {
        const Capture& log = mSession.Log();
        if (log.pluginCount == 0) return "";
        if (log.origin.empty()) {
            return fmt::format(
                "The {} format has no times: the lines are taken in their order, and "
                "no lock is seen to expire.",
                FormatsText());
        }
        return fmt::format(
            "{} {}{}.",
            mMoments.HasClock() ? "Times are the phone's; the first line is of"
                                : "Times count from",
            mMoments.HasClock() ? mMoments.Stamp({}) : log.origin,
            log.hasUntimed ? "; lines without a time have that of the line before" : "");
    }

    void PrintHead() {
        const Capture& log = mSession.Log();
        std::cout << mPaint(Colour::kBold, log.file) << (log.entry.empty() ? "" : ": " + log.entry)
                  << "\n"
                  << fmt::format(
                         "device {}{}, scenes {}\n", mSession.Device().name,
                         mSession.IsDeviceGuessed() ? " (a guess: name it with --device)" : "",
                         mSession.Scenes().File())
                  << (mSession.IsLive() ? std::string("told as it comes")
                                        : fmt::format("{} of {} lines are the plug-in's",
                                                      log.pluginCount, log.lineCount))
                  << (log.formats.empty() ? "" : ", format " + FormatsText()) << "\n";
        if (const std::string times = TimesText(); !times.empty()) std::cout << times << "\n";
        if (const std::string advice = mSession.DetailAdvice(); !advice.empty()) {
            std::cout << mPaint(Colour::kYellow, advice) << "\n";
        }
        if (!mSession.IsLive()) PrintUnknowns();
        std::cout << "\n" << std::flush;
    }

    void PrintUnknowns() {
        for (const std::string& unknown : mSession.Unknowns()) {
            std::cout << mPaint(Colour::kYellow, unknown) << "\n";
        }
    }

    void PrintProblems() {
        const std::vector<LogProblem> problems = mSession.Problems();
        const size_t shown = mOptions.verbose ? problems.size() : kMostProblems;
        for (size_t i = 0; i < problems.size() && i < shown; ++i) {
            PrintError(Colour::kYellow, ProblemText(mSession.Log(), problems[i]));
        }
        if (problems.size() > shown) {
            PrintError(Colour::kYellow, fmt::format("... and {} more; --verbose shows them all",
                                                    problems.size() - shown));
        }
    }

    void PrintEnd() {
        const Time now = mSession.GetPhone().GetClock().Now();
        const bool isWhole = mSession.Earlier().IsWhole() && !mSession.Story().lastLoss;
        std::cout << "\n";
        if (mBook.Locks().empty()) {
            std::cout << (isWhole ? "No lock is held at the end of the log.\n"
                                  : "No lock that this log tells of is held at its end.\n");
        } else {
            std::cout << mPaint(Colour::kBold, fmt::format("Locks held at the end of the log{}: {}",
                                                           isWhole ? "" : ", of those it tells of",
                                                           mBook.Locks().size()))
                      << "\n";
        }
        for (const auto& [handle, lock] : mBook.Locks()) PrintHeld(lock, now);
        if (mSession.IsLive()) PrintUnknowns();
        for (const std::string& note : Notes()) std::cout << mPaint(Colour::kYellow, note) << "\n";
    }

    std::string DoubtOf(const BookedLock& lock) const {
        return mSession.DoubtOf(lock, mPlayer.DoubtLine(lock.handle));
    }

    void PrintHeld(const BookedLock& lock, Time now) {
        const std::string doubt = DoubtOf(lock);
        std::cout << fmt::format("  lock {:<4} {}, taken by: {} (line {})\n",
                                 lock.handle < 0 ? "?" : std::to_string(lock.handle),
                                 lock.until
                                     ? fmt::format("for {} ms more", WholeMs(*lock.until - now))
                                     : std::string("until released"),
                                 lock.request->text, lock.request->line);
        if (!doubt.empty()) {
            std::cout << "            " << mPaint(Colour::kYellow, "not sure: " + doubt) << "\n";
        }
        for (size_t i = 0; i + 1 < lock.list.size(); i += 2) {
            std::cout << "            "
                      << Timeline::PairText(lock.list[i], lock.list[i + 1], mLayout) << "\n";
        }
    }

    // How sure an event is: the log tells it, or it follows from what the log tells and what is
    // known of the phone.
    static const char* CertaintyOf(const Event& event) {
        if (const auto* acquire = std::get_if<LockAcquire>(&event.what)) {
            return acquire->isDoubtful ? "doubtful" : acquire->isEarlier ? "inferred" : "told";
        }
        if (const auto* access = std::get_if<NodeAccess>(&event.what)) {
            return access->byHal ? "inferred" : "told";
        }
        if (const auto* timer = std::get_if<TimerEvent>(&event.what)) {
            return timer->kind == TimerEvent::Kind::kArm ? "inferred" : "told";
        }
        return std::holds_alternative<LockExpire>(event.what) ? "inferred" : "told";
    }

    Json CapturedEventJson(const Event& event) const {
        Json json = EventJson(event, mLayout);
        if (mMoments.HasClock()) json["clock"] = mMoments.Stamp(event.at);
        json["certainty"] = CertaintyOf(event);
        const auto* acquire = std::get_if<LockAcquire>(&event.what);
        if (acquire && !acquire->list.empty()) {
            json["pairs_from"] = acquire->isListAssumed ? "scenes" : "log";
        }
        if (acquire && acquire->isListAssumed) json["on_demand"] = acquire->isOnDemand;
        if (acquire && acquire->sceneMs) json["scenes_duration_ms"] = *acquire->sceneMs;
        return json;
    }

    Json BeforeJson() const {
        const EarlierLocks& earlier = mSession.Earlier();
        Json before;
        before["is_whole"] = earlier.IsWhole();
        if (earlier.FirstHandle() > 0) before["first_handle"] = earlier.FirstHandle();
        before["locks"] = Json::array();
        for (const EarlierLock& lock : mSession.LocksBefore()) {
            const bool isTag = lock.kind == EarlierLock::Kind::kTag;
            const SceneCommand* command = isTag ? nullptr : mSession.Scenes().Find(lock.key);
            Json json;
            json["handle"] = lock.handle > 0 ? Json(lock.handle) : Json();
            json[isTag ? "tag" : "command"] = isTag ? TagLabel(lock.key, mLayout)
                                              : command && !command->name.empty()
                                                  ? command->name
                                                  : std::to_string(lock.key);
            json["line"] = lock.line;
            json["certainty"] = lock.isCertain ? "inferred" : "doubtful";
            before["locks"].push_back(std::move(json));
        }
        before["asks"] = Json::array();
        for (const EarlierAsk& ask : earlier.Asks()) {
            before["asks"].push_back({{"client", ClientLabel(ask.client)},
                                      {"tag", TagLabel(ask.tag, mLayout)},
                                      {"value", ask.value},
                                      {"line", ask.line}});
        }
        return before;
    }

    Json HeldJson() const {
        Json held = Json::array();
        for (const auto& [handle, lock] : mBook.Locks()) {
            const auto msOf = [](Time at) {
                return std::chrono::duration<double, std::milli>(at).count();
            };
            Json json;
            json["handle"] = handle < 0 ? Json() : Json(handle);
            json["since_ms"] = msOf(lock.renewed);
            json["until_ms"] = lock.until ? Json(msOf(*lock.until)) : Json();
            json["taken_by"] = lock.request->text;
            json["line"] = lock.request->line;
            if (!lock.list.empty()) {
                json["pairs"] = PairsJson(lock.list, mLayout);
                json["pairs_from"] = lock.isListAssumed ? "scenes" : "log";
            }
            const std::string doubt = DoubtOf(lock);
            json["certainty"] = doubt.empty() ? "told" : "doubtful";
            if (!doubt.empty()) json["doubt"] = doubt;
            held.push_back(std::move(json));
        }
        return held;
    }

    std::vector<std::string> Notes() const {
        std::vector<std::string> notes;
        const std::string unknown = mSession.UnknownCommands();
        if (!unknown.empty()) notes.push_back(unknown);
        for (const std::string& path : mPlayer.MissingNodes()) {
            notes.push_back(
                fmt::format("{} has no node {}: name the phone's own device with "
                            "--device",
                            mSession.Device().name, path));
        }
        if (const auto& surprise = mPlayer.Surprises(); surprise.count > 0) {
            const std::string unit = NodeUnit(surprise.path);
            notes.push_back(fmt::format(
                "Line {} reads {} {} from {}, where the locks that the log tells of make it {}{}: "
                "a lock from before the capture, another program's doing, or another phone's "
                "scene file",
                surprise.line, surprise.read, unit, ShortNode(surprise.path), surprise.expected,
                surprise.count == 1
                    ? ""
                    : fmt::format(" (and {} more such lines)", surprise.count - 1)));
        }
        if (mRefused > 0) notes.push_back(fmt::format("Locks refused: {}", mRefused));
        const size_t problems = mSession.Problems().size();
        if (problems > 0) notes.push_back(fmt::format("Findings in the capture: {}", problems));
        return notes;
    }

    void PrintJson() {
        const Capture& log = mSession.Log();
        Json json;
        json["capture"] = log.file;
        if (!log.entry.empty()) json["entry"] = log.entry;
        json["device"] = mSession.Device().name;
        json["is_device_guessed"] = mSession.IsDeviceGuessed();
        json["scenes"] = mSession.Scenes().File();
        json["formats"] = FormatsText();
        if (!log.origin.empty()) json["origin"] = log.origin;
        json["lines"] = {{"all", log.lineCount},
                         {"plug_in", log.pluginCount},
                         {"other_programs", log.foreignCount},
                         {"unreadable", log.unreadableCount}};
        const LogDetail detail = mSession.Story().detail;
        json["detail"] = detail == LogDetail::kFull      ? "full"
                         : detail == LogDetail::kVersion ? "version"
                                                         : "errors";
        json["problems"] = Json::array();
        for (const LogProblem& problem : mSession.Problems()) {
            json["problems"].push_back({{"line", problem.line},
                                        {"last_line", problem.lastLine},
                                        {"message", problem.message}});
        }
        json["unknown"] = mSession.Unknowns();
        json["before"] = BeforeJson();
        json["notes"] = Notes();
        json["held"] = HeldJson();
        json["events"] = std::move(mEvents);
        std::cout << json.dump(1, ' ', false, Json::error_handler_t::replace) << "\n";
    }

    LogSession& mSession;
    const LogcatOptions& mOptions;
    const Layout mLayout;
    const Paint mPaint;
    const Moments mMoments;
    Book mBook;
    Timeline mTimeline;
    PictureFiles mPictures;
    LogPlayer mPlayer;
    Json mEvents = Json::array();
    int mRefused = 0;
};

int ReadLog(const LogcatOptions& options) {
    FileRoles roles;
    roles.Writes(options.trace, "--trace");
    roles.Writes(options.report, "--report");
    roles.Reads(FindCapture(options.session.capture), "capture");
    roles.Reads(options.session.library, "plug-in");
    ReadInsteadFiles({options.session.device, options.session.scenes}, roles);
    LogSession::Options opened = options.session;
    // What is told as it comes is told without what only its end shows.
    opened.isLive = !options.json && options.trace.empty() && options.report.empty();
    LogSession session(opened);
    roles.Reads(session.Scenes().File(), "scene file");
    return LogcatReport(session, options).Print();
}

}  // namespace

void AddLogcatCommand(CLI::App& app, int& exitCode) {
    auto logcat = AddCommand<LogcatOptions>(
        app, exitCode, "logcat",
        "Reads a capture of a phone's log and prints the plug-in's timeline.", kLogcatFooter,
        ReadLog);
    LogcatOptions& options = logcat.options;
    LogSession::Options& session = options.session;
    logcat.Takes("capture", "CAPTURE", session.capture, "The capture: a file, a shipped name or -")
        .required();
    logcat.Takes("--device", "NAME|FILE", session.device,
                 "The phone's device: a shipped name or a YAML file (default: what the log shows, "
                 "else sm8450)");
    logcat.Takes("--scenes", "FILE", session.scenes,
                 "The phone's scene file (default: the device's shipped one)");
    logcat.Takes("--trace", "FILE.json", options.trace,
                 "Write a trace for ui.perfetto.dev or chrome://tracing");
    logcat.Takes("--report", "FILE.html", options.report,
                 "Write a page that shows limits, locks and log on one time axis");
    logcat.Takes("--json", options.json, "Print everything as one JSON document");
    logcat.Takes("-v,--verbose", options.verbose,
                 "Show info and debug lines, node reads, whole paths and every finding too");
    logcat.TakesLibrary(session.library);
}

}  // namespace lab

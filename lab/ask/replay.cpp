#include "lab/ask/replay.h"

#include <fmt/format.h>

#include <filesystem>

#include "lab/check/scenario_check.h"
#include "lab/logcat/log_player.h"
#include "lab/logcat/log_session.h"
#include "lab/names/text.h"
#include "lab/server/runner.h"

namespace lab {
namespace {

// The nodes that steps create, among them those of repeats.
void AddArranged(const std::vector<Step>& steps, std::vector<std::string>& paths) {
    for (const Step& step : steps) {
        if (const auto* arrange = std::get_if<ArrangeNodes>(&step.request)) {
            for (const auto& [path, value] : arrange->nodes) {
                if (value) paths.push_back(path);
            }
        } else if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
            AddArranged(repeat->steps, paths);
        }
    }
}

class ScenarioReplay final : public Replay {
  public:
    ScenarioReplay(const YamlNode& scenario, const Options& options)
        : mHead(ReadScenarioHead(scenario)),
          mDevice(DeviceOfScenario(options.instead, mHead)),
          mScenes(SceneFile::Load(ScenesOfScenario(options.instead, mHead, mDevice))),
          mSteps(ReadScenarioSteps(scenario, mScenes)),
          mPhone(mDevice),
          mLibrary(options.library),
          mServer(mPhone, mLibrary, mScenes) {
        if (!options.at.empty()) mAt = mTimes.Read("--at", options.at);
        OpenBook();
    }

    bool IsCapture() const override { return false; }
    const DeviceProfile& Device() const override { return mDevice; }
    const SceneFile& Scenes() const override { return mScenes; }
    Phone& GetPhone() override { return mPhone; }
    std::map<std::string, int> Status() override { return mServer.Status(); }
    std::string DoubtOf(const BookedLock&) const override { return ""; }

    std::vector<std::string> ArrangedNodes() const override {
        std::vector<std::string> paths;
        AddArranged(mSteps, paths);
        return paths;
    }

    void Play(const std::function<void(const Event&)>& observe) override {
        Runner runner({mPhone, mServer, *mBook, mDevice, mScenes}, observe);
        runner.Start(mHead);
        if (mAt) {
            runner.PlayUntil(mSteps, *mAt);
        } else {
            runner.Play(mSteps);
        }
        runner.Finish();
        mPlayedTo = runner.PlayedTo();
    }

    void Describe(ReplayAnswer& answer) override {
        Replay::Describe(answer);
        answer.title = mHead.title.empty() ? mHead.file : mHead.title;
        answer.times = mTimes;
        std::vector<std::string>& remarks = answer.remarks;
        if (mAt && *mAt > mPlayedTo) {
            remarks.push_back(fmt::format(
                "{}: {} s is after the scenario's end at {} s: what is shown is what comes of "
                "it without further requests",
                mHead.file, SecondsText(*mAt), SecondsText(mPlayedTo)));
        }
        for (std::string& note : ClusterNotes(mDevice)) remarks.push_back(std::move(note));
        const Layout layout = mScenes.ClusterLayout();
        for (std::string& slip : FindUnitSlips(mSteps, mHead.file, mDevice, layout)) {
            remarks.push_back(std::move(slip));
        }
        for (const SceneProblem& problem : mServer.Problems()) {
            remarks.push_back(ProblemText(mScenes, problem));
        }
    }

  private:
    const ScenarioHead mHead;
    const DeviceProfile mDevice;
    SceneFile mScenes;
    const std::vector<Step> mSteps;
    const Moments mTimes;
    Phone mPhone;
    Library mLibrary;
    Server mServer;
    Time mPlayedTo{};
};

class CaptureReplay final : public Replay {
  public:
    explicit CaptureReplay(const Options& options)
        : mSession({options.file, options.instead.device, options.instead.scenes, options.library,
                    false}),
          mTimes(mSession.Log().clock, mSession.Log().end) {
        if (!options.at.empty()) mAt = mTimes.Read("--at", options.at);
        OpenBook();
    }

    bool IsCapture() const override { return true; }
    const DeviceProfile& Device() const override { return mSession.Device(); }
    const SceneFile& Scenes() const override { return mSession.Scenes(); }
    Phone& GetPhone() override { return mSession.GetPhone(); }

    void Play(const std::function<void(const Event&)>& observe) override {
        mPlayer.emplace(mSession.GetPhone(), [&](const Event& event) {
            mBook->Observe(event);
            observe(event);
        });
        mSession.Tell([this](LogRequest&& request) {
            if (!mAt || request.at <= *mAt) mPlayer->Play(request);
        });
        mPlayer->Finish(mAt.value_or(mSession.Log().end));
    }

    void Describe(ReplayAnswer& answer) override {
        Replay::Describe(answer);
        answer.title = mSession.Log().file;
        answer.times = mTimes;
        const LogStory& story = mSession.Story();
        answer.isWhole =
            mSession.Earlier().IsWhole() && !story.lastLoss && story.detail != LogDetail::kErrors;
        std::vector<std::string>& remarks = answer.remarks;
        remarks = mSession.Unknowns();
        for (const std::string& note : {mSession.DetailAdvice(), mSession.UnknownCommands()}) {
            if (!note.empty()) remarks.push_back(note);
        }
        if (mSession.IsDeviceGuessed()) {
            remarks.push_back(fmt::format("the device is a guess, {}: name it with --device",
                                          mSession.Device().name));
        }
        const std::vector<LogProblem> problems = mSession.Problems();
        if (!problems.empty()) {
            remarks.push_back(fmt::format("{} in the capture, the first: {}; 'logcat' lists them",
                                          Counted(problems.size(), "problem"),
                                          ProblemText(mSession.Log(), problems[0])));
        }
    }

    std::string DoubtOf(const BookedLock& lock) const override {
        return mSession.DoubtOf(lock, mPlayer->DoubtLine(lock.handle));
    }

  private:
    LogSession mSession;
    const Moments mTimes;
    std::optional<LogPlayer> mPlayer;
};

// A scenario is YAML by its name, or a shipped one; everything else is read as a log.
bool IsScenario(const std::string& name) {
    const std::string extension = std::filesystem::path(name).extension();
    if (extension == ".yaml" || extension == ".yml") return true;
    std::error_code ignored;
    if (name == "-" || std::filesystem::exists(name, ignored)) return false;
    return FindCapture(name) == name;
}

}  // namespace

std::unique_ptr<Replay> Replay::Open(const Options& options) {
    if (!IsScenario(options.file)) return std::make_unique<CaptureReplay>(options);
    return OpenScenario(LoadYamlFile(FindScenarioFile(options.file)), options);
}

std::unique_ptr<Replay> Replay::OpenScenario(const YamlNode& scenario, const Options& options) {
    return std::make_unique<ScenarioReplay>(scenario, options);
}

void Replay::Describe(ReplayAnswer& answer) {
    answer.device = Device().name;
    answer.scenes = Scenes().File();
    answer.at = Now();
    answer.isCapture = IsCapture();
}

}  // namespace lab

#include "fuzz/referee.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "lab/server/request_facts.h"

namespace fuzz {
namespace {

using Moment = lab::LimitRule::Moment;

constexpr std::array<int, 8> kLimitTags = {0, 1, 3, 4, 6, 7, 9, 10};
constexpr std::array<int, 6> kWeighedTags = {1, 4, 7, 10, 40, 41};
constexpr std::array<int, 3> kDumpedClients = {1, 2, 3};
constexpr int kNeverSaid = -1;

Moment MomentOf(const lab::DoCommand& command) {
    if (command.payload == std::vector<int>{0}) return Moment::kBegins;
    if (command.payload == std::vector<int>{-1}) return Moment::kEnds;
    return Moment::kOnce;
}

int64_t ToMs(lab::Time time) {
    return std::chrono::ceil<std::chrono::milliseconds>(time).count();
}

std::string TextOf(const std::vector<std::pair<std::vector<int>, int64_t>>& locks) {
    std::string text;
    for (const auto& [list, leftMs] : locks) {
        text += text.empty() ? "" : "; ";
        for (size_t i = 0; i + 1 < list.size(); i += 2) {
            text += fmt::format("{}0x{:08x} {}", i == 0 ? "" : ", ", static_cast<unsigned>(list[i]),
                                list[i + 1]);
        }
        if (leftMs > 0) text += fmt::format(" for {} ms more", leftMs);
    }
    return text.empty() ? "none" : text;
}

std::string TextOf(const lab::Kernel::LimitRequests& requests) {
    std::string text = fmt::format("{} written", requests.program);
    if (requests.inPlace) text += fmt::format(", {} in its place", *requests.inPlace);
    if (requests.hal) text += fmt::format(", {} by locks", *requests.hal);
    return text;
}

bool IsSame(const lab::Kernel::LimitRequests& a, const lab::Kernel::LimitRequests& b) {
    return a.program == b.program && a.inPlace == b.inPlace && a.hal == b.hal;
}

template <typename Value>
void Compare(const std::string& what, const Value& expected, const Value& found,
             std::vector<Difference>& differences) {
    if (expected == found) return;
    differences.push_back({what, fmt::format("{}", expected), fmt::format("{}", found), ""});
}

}  // namespace

Referee::Referee(const std::string& device, lab::LimitWeighing weigh)
    : mDesk(device, lab::Phone::Options()), mWeigh(weigh) {
    mRule.emplace(mDesk.Device(), mDesk.ClusterLayout(), mWeigh);
    for (const int tag : kLimitTags) {
        if (!mRule->Phone().Has(tag)) continue;
        const std::string& path = mRule->Phone().PathOf(tag);
        mNodes.emplace_back(tag, path);
        mAtBoot[path] = std::to_string(mDesk.GetPhone().GetKernel().RequestsOn(path)->program);
    }
}

void Referee::Begin() {
    ClearPhone();
    mDesk.Restart();
    mDesk.GetPhone().Events().Clear();
    mRule.emplace(mDesk.Device(), mDesk.ClusterLayout(), mWeigh);
    mTouched.clear();
    mStrayWrites.clear();
    mTimerEnd.reset();
}

void Referee::ClearPhone() {
    lab::Phone& phone = mDesk.GetPhone();
    phone.Hal().RefuseNext(0, 0);
    for (const lab::PerfHal::Lock& lock : phone.Hal().Held()) phone.Hal().Release(lock.handle);
    for (const auto& [path, boot] : mAtBoot) {
        if (!mTouched.count(path)) continue;
        if (std::to_string(phone.GetKernel().RequestsOn(path)->program) == boot) continue;
        phone.GetKernel().Force(path, boot);
    }
}

std::vector<Difference> Referee::Play(const Deed& deed, bool judged) {
    ++mRequestCount;
    const int expected = TellRule(deed);
    if (deed.afterMs > 0) {
        lab::Clock& clock = mDesk.GetPhone().GetClock();
        clock.AdvanceTo(clock.Now() + std::chrono::milliseconds(deed.afterMs));
    }
    const int result = mDesk.Perform(deed).result;
    HandOn();
    std::vector<Difference> differences;
    if (!judged) return differences;

    const lab::LimitRule& rule = *mRule;
    if (result != expected) {
        differences.push_back({"result", std::to_string(expected), std::to_string(result), ""});
    }
    CompareNodes(differences);
    const Locks held = LocksHeld();
    const Locks byRule = LocksByRule();
    if (held != byRule) {
        differences.push_back(
            {"locks", TextOf(byRule), TextOf(held), fmt::format("locks: {}", byRule.size())});
    }
    const std::map<std::string, int> status = mDesk.GetServer().Status();
    Compare("performance", rule.Performance(), status.at("mPB_Prior"), differences);
    Compare("thermal level", rule.ThermalLevel(), status.at("mTB_Prior"), differences);
    Compare("breakthrough's ms left", rule.BreakthroughMs(), TimerMs(), differences);
    const std::vector<int> words = ClientWords();
    const std::vector<int> wordsByRule = ClientWordsByRule();
    if (words != wordsByRule) {
        differences.push_back({"clients' words", fmt::format("{}", fmt::join(wordsByRule, " ")),
                               fmt::format("{}", fmt::join(words, " ")), ""});
    }
    for (const std::string& path : mStrayWrites) {
        differences.push_back({"writes", "limits' nodes alone", path, ""});
    }
    return differences;
}

int Referee::TellRule(const Deed& deed) {
    mRule->Pass(deed.afterMs);
    const auto* const request = std::get_if<lab::Request>(&deed.what);
    if (request == nullptr) return 0;
    if (const auto* limits = std::get_if<lab::SetLimits>(request)) {
        std::vector<lab::LimitRule::Asked> asked;
        for (const lab::TagValue& pair : limits->tags) asked.push_back({pair.tag, pair.value});
        return mRule->Limit(limits->clientId, asked);
    }
    const auto* const command = std::get_if<lab::DoCommand>(request);
    return command == nullptr ? 0 : TellRule(*command);
}

int Referee::TellRule(const lab::DoCommand& command) {
    const Action* const chain = mDesk.GetServer().FindChain(command.cmdId);
    const Moment moment = MomentOf(command);
    if (!lab::IsLongScene(*chain)) {
        for (const lab::LimitRule::Element& element : ElementsOf(command.cmdId)) {
            mRule->Run(element, moment);
        }
        return 0;
    }
    std::vector<lab::LimitRule::Asked> asked;
    for (size_t i = 0; i + 1 < chain->perfList.size(); i += 2) {
        asked.push_back({chain->perfList[i], chain->perfList[i + 1]});
    }
    return mRule->Scene(command.cmdId, asked, moment);
}

// What a command's locks name is the loader's and the completion's affair: it is taken as it is
// sent under the thermal level in force.
const std::vector<lab::LimitRule::Element>& Referee::ElementsOf(int cmdId) {
    const auto [known, isNew] =
        mElements.try_emplace(std::pair(cmdId, std::max(mRule->ThermalLevel(), 0)));
    if (!isNew) return known->second;
    const lab::ActionChain chain = mDesk.GetServer().Boosted(cmdId);
    int index = 0;
    for (const Action* action = chain.get(); action != nullptr; action = action->next) {
        known->second.push_back({action->cmdId,
                                 index++,
                                 action->duration,
                                 action->boostLimitLevel,
                                 action->breakThrough != 0,
                                 {action->perfList.begin(), action->perfList.end()}});
    }
    return known->second;
}

void Referee::HandOn() {
    lab::Recorder& events = mDesk.GetPhone().Events();
    for (const lab::Event& event : events.Events()) {
        if (const auto* access = std::get_if<lab::NodeAccess>(&event.what)) {
            if (access->kind != lab::NodeAccess::Kind::kWrite) continue;
            mTouched.insert(access->path);
            if (!access->byHal && !mAtBoot.count(access->path))
                mStrayWrites.push_back(access->path);
        } else if (const auto* timer = std::get_if<lab::TimerEvent>(&event.what)) {
            if (timer->kind == lab::TimerEvent::Kind::kArm) {
                mTimerEnd = event.at + std::chrono::milliseconds(timer->ms);
            } else if (timer->kind != lab::TimerEvent::Kind::kCreate) {
                mTimerEnd.reset();
            }
        }
    }
    events.Clear();
}

void Referee::CompareNodes(std::vector<Difference>& differences) {
    const lab::Kernel& kernel = mDesk.GetPhone().GetKernel();
    for (const auto& [tag, path] : mNodes) {
        const std::string name = lab::TagLabel(tag, mDesk.ClusterLayout());
        const std::string expected = std::to_string(mRule->Phone().Reading(tag));
        const std::string found = kernel.Value(path);
        if (expected != found) {
            differences.push_back({name + " reads", expected, found,
                                   fmt::format("nodes: {{{}: {}}}", path, expected)});
        }
        const lab::Kernel::LimitRequests asked = mRule->Phone().Requests(tag);
        const lab::Kernel::LimitRequests met = *kernel.RequestsOn(path);
        if (!IsSame(asked, met)) {
            differences.push_back({"what meets in " + name, TextOf(asked), TextOf(met), ""});
        }
    }
}

Referee::Locks Referee::LocksHeld() {
    Locks locks;
    const lab::Time now = mDesk.GetPhone().GetClock().Now();
    for (const lab::PerfHal::Lock& lock : mDesk.GetPhone().Hal().Held()) {
        locks.emplace_back(lock.list, lock.until ? ToMs(*lock.until - now) : 0);
    }
    std::sort(locks.begin(), locks.end());
    return locks;
}

Referee::Locks Referee::LocksByRule() const {
    Locks locks;
    for (const lab::LimitPhone::Lock& lock : mRule->Phone().Held()) {
        locks.emplace_back(lock.list, lock.untilMs ? *lock.untilMs - mRule->NowMs() : 0);
    }
    std::sort(locks.begin(), locks.end());
    return locks;
}

// The plug-in's own list of what clients asked for.
std::vector<int> Referee::ClientWords() {
    const std::string dump = mDesk.GetServer().Send(lab::DumpLimits()).text;
    constexpr std::string_view kBeforeValue = "value=";
    std::vector<int> words;
    for (size_t at = dump.find(kBeforeValue); at != dump.npos; at = dump.find(kBeforeValue, at)) {
        at += kBeforeValue.size();
        words.push_back(std::atoi(dump.c_str() + at));
    }
    return words;
}

std::vector<int> Referee::ClientWordsByRule() const {
    std::vector<int> words;
    for (const int client : kDumpedClients) {
        for (const int tag : kWeighedTags) {
            words.push_back(mRule->Remembered(client, tag).value_or(kNeverSaid));
        }
    }
    return words;
}

int64_t Referee::TimerMs() {
    return mTimerEnd ? ToMs(*mTimerEnd - mDesk.GetPhone().GetClock().Now()) : 0;
}

std::string Referee::State() {
    std::string state = mRule->Summary();
    const lab::Kernel& kernel = mDesk.GetPhone().GetKernel();
    for (const std::string& path : mTouched) {
        if (mAtBoot.count(path)) continue;
        state += path + '=' + kernel.Value(path) + ';';
    }
    for (const auto& [tag, path] : mNodes) {
        state += kernel.Value(path) + ' ' + TextOf(*kernel.RequestsOn(path)) + ';';
    }
    state += TextOf(LocksHeld());
    for (const auto& [key, value] : mDesk.GetServer().Status()) {
        state += fmt::format(" {}={}", key, value);
    }
    state += fmt::format(" {} {}", TimerMs(), fmt::join(ClientWords(), " "));
    return state;
}

}  // namespace fuzz

#include "tests/support/plugin_test.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>

#include "lab/phone/device_profile.h"

Command& Command::Element(const std::string& name, const Pairs& pairs) {
    auto element = std::make_unique<RawXmlData>();
    element->cmdId = mId;
    element->name = name;
    for (const auto& [key, value] : pairs) {
        element->keys.push_back(key);
        element->values.push_back(value);
    }
    Last().next = element.get();
    mElements.push_back(std::move(element));
    return *this;
}

std::string ToText(const lab::LockAcquire& call) {
    std::string text = fmt::format("acq {} {}ms", call.requestedHandle, call.durationMs);
    for (size_t i = 0; i + 1 < call.list.size(); i += 2) {
        text += fmt::format(" 0x{:X}={}", static_cast<unsigned>(call.list[i]), call.list[i + 1]);
    }
    return text + fmt::format(" -> {}", call.returned);
}

std::string ToText(const lab::LockRelease& call) {
    return fmt::format("rel {} -> {}", call.handle, call.returned);
}

namespace {

size_t CountOpenFiles() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

}  // namespace

PluginTest::PluginTest() : mOpenFilesBefore(CountOpenFiles()) {}

void PluginTest::TearDown() {
    if (mPhone == nullptr) return;
    Forget();
    EXPECT_EQ(mOpenSections, 0);
    EXPECT_EQ(CountOpenFiles(), mOpenFilesBefore);
    EXPECT_EQ(GetPhone().GetBreaches().inheritableNodes, 0);
    EXPECT_EQ(GetPhone().GetBreaches().meetingHalCalls, 0);
    std::set<std::vector<int>> endless;
    for (const lab::PerfHal::Lock& lock : GetPhone().Hal().Held()) {
        if (lock.until) continue;
        std::vector<int> opcodes;
        for (size_t i = 0; i < lock.list.size(); i += 2) opcodes.push_back(lock.list[i]);
        EXPECT_TRUE(endless.insert(opcodes).second) << "lock " << lock.handle << " has a double";
    }
    // What loaders told the process goes with the platform, also where no adapter was built.
    if (mLibrary != nullptr && mAdapter == nullptr) {
        Exported<TarQuelPlat* (*)()>("GetPlat")()->~TarQuelPlat();
    }
}

void PluginTest::Forget() {
    for (const auto& section : GetPhone().Events().All<lab::TraceSection>()) {
        mOpenSections += section.begin ? 1 : -1;
    }
    GetPhone().Events().Clear();
}

void PluginTest::Boot(const std::string& device, const lab::Phone::Options& options) {
    StartPhone(device, options);
    LoadLibrary();
    DescribeClusters();
    Initialize();
    Forget();
}

void PluginTest::StartPhone(const std::string& device, const lab::Phone::Options& options) {
    mPhone = std::make_unique<lab::Phone>(lab::LoadDeviceProfile(device), options);
}

void PluginTest::LoadLibrary() {
    mLibrary = std::make_unique<lab::Library>("");
}

void PluginTest::DescribeClusters() {
    const lab::DeviceProfile& profile = GetPhone().GetKernel().Profile();
    Pairs pairs{{"isolation", "1"}};
    const std::map<std::string, std::string> keys{
        {"little", "lit_cpu_num"}, {"big", "big_cpu_num"}, {"prime", "prime_cpu_num"}};
    for (const lab::CpuCluster& cluster : profile.clusters) {
        pairs.emplace_back(keys.at(cluster.name),
                           fmt::format("{}-{}", cluster.firstCpu, cluster.lastCpu));
    }
    Command clusters(1);
    clusters.Element("qcom_cpu_info", pairs);
    Parse({&clusters});
}

void PluginTest::Initialize() {
    mAdapter = &mLibrary->Initialize();
}

std::map<int, lab::ActionChain> PluginTest::Parse(std::vector<Command*> commands) {
    std::map<int, RawXmlData*> heads;
    for (Command* command : commands) heads[command->Id()] = &command->Head();
    return mLibrary->ParseScenes(heads);
}

std::unique_ptr<QcomAction> PluginTest::MakeAction(int cmdId, int durationMs,
                                                   std::vector<int> pairs, int boostLimitLevel) {
    RawXmlData element;
    element.cmdId = cmdId;
    element.name = "boost";
    std::unique_ptr<QcomAction> action(
        static_cast<QcomAction*>(mLibrary->ParseInteractive(element).release()));
    action->duration = durationMs;
    action->boostLimitLevel = boostLimitLevel;
    action->tagLen = static_cast<int>(pairs.size() / 2);
    action->perfList.assign(pairs.begin(), pairs.end());
    return action;
}

int PluginTest::Limit(int clientId, const std::vector<std::pair<int, int>>& tagValues) {
    std::vector<int> tags;
    std::vector<int> configs;
    for (const auto& [tag, value] : tagValues) {
        tags.push_back(tag);
        configs.push_back(value);
    }
    return Adapter().DoPerfSetConfig(clientId, static_cast<int>(tags.size()), tags.data(),
                                     configs.data());
}

int PluginTest::Scene(int cmdId, const std::vector<std::pair<int, int>>& tagValues, int event) {
    std::vector<int> pairs;
    for (const auto& [tag, value] : tagValues) pairs.insert(pairs.end(), {tag, value});
    return Do(*MakeAction(cmdId, 0, pairs), event);
}

void PluginTest::Advance(int ms) {
    lab::Clock& clock = GetPhone().GetClock();
    clock.AdvanceTo(clock.Now() + std::chrono::milliseconds(ms));
}

std::vector<std::string> PluginTest::HalCalls() const {
    std::vector<std::string> calls;
    for (const lab::Event& event : GetPhone().Events().Events()) {
        if (const auto* acquire = std::get_if<lab::LockAcquire>(&event.what)) {
            calls.push_back(ToText(*acquire));
        } else if (const auto* release = std::get_if<lab::LockRelease>(&event.what)) {
            calls.push_back(ToText(*release));
        }
    }
    return calls;
}

std::vector<std::string> PluginTest::Log(int priority) const {
    std::vector<std::string> lines;
    for (const lab::LogLine& line : GetPhone().Events().All<lab::LogLine>()) {
        if (line.priority == priority) lines.push_back(line.text);
    }
    return lines;
}

bool PluginTest::HasLogged(int priority, const std::string& text) const {
    const std::vector<std::string> lines = Log(priority);
    return std::find(lines.begin(), lines.end(), text) != lines.end();
}

std::vector<std::string> PluginTest::Sections() const {
    std::vector<std::string> sections;
    for (const auto& section : GetPhone().Events().All<lab::TraceSection>()) {
        sections.push_back(section.begin ? section.name : "end");
    }
    return sections;
}

std::vector<std::string> PluginTest::NodeWrites() const {
    std::vector<std::string> writes;
    for (const auto& access : GetPhone().Events().All<lab::NodeAccess>()) {
        if (access.kind == lab::NodeAccess::Kind::kWrite && !access.byHal) {
            writes.push_back(access.path + "=" + access.requested);
        }
    }
    return writes;
}

void* PluginTest::FindExported(const char* symbol) const {
    void* library = dlopen(mLibrary->File().c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr) return nullptr;
    void* found = dlsym(library, symbol);
    dlclose(library);
    return found;
}

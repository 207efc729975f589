#include "lab/profile/profile_maker.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "lab/names/node_names.h"
#include "lab/names/text.h"
#include "lab/yaml/yaml_tree.h"
#include "nodes/inter_path_table.h"

namespace lab {
namespace {

constexpr char kCpus[] = "/sys/devices/system/cpu/";
constexpr char kPolicies[] = "/sys/devices/system/cpu/cpufreq/policy";
constexpr char kGpu[] = "/sys/class/kgsl/kgsl-3d0/";
constexpr char kBuses[] = "/sys/devices/system/cpu/bus_dcvs/";

// What a GPU of which nothing is known may be.
const std::vector<int64_t> kSomeGpu = {800, 300};

// Ascending, each once, without what is no frequency.
std::vector<int64_t> TableOf(std::vector<int64_t> steps, int64_t highest) {
    std::erase_if(steps, [&](int64_t step) { return step < 1 || step > highest; });
    std::sort(steps.begin(), steps.end());
    steps.erase(std::unique(steps.begin(), steps.end()), steps.end());
    return steps;
}

// "0 1 2 3" or "0-3".
std::vector<int> CpusOf(std::string text) {
    std::replace(text.begin(), text.end(), ',', ' ');
    std::istringstream words(text);
    std::vector<int> cpus;
    for (std::string word; std::getline(words, word, ' ');) {
        const size_t dash = word.find('-');
        const auto first = ParseNumber(word.substr(0, dash));
        const auto last = dash == word.npos ? first : ParseNumber(word.substr(dash + 1));
        if (!first || !last || *first < 0 || *last > 1023) continue;
        for (int64_t cpu = *first; cpu <= *last; ++cpu) cpus.push_back(static_cast<int>(cpu));
    }
    std::sort(cpus.begin(), cpus.end());
    return cpus;
}

class Maker {
  public:
    explicit Maker(const PhoneDump& dump) : mDump(dump) {}

    MadeProfile Make(const std::string& name) {
        MakeName(name);
        MakeClusters();
        MakeGpu();
        MakeBuses();
        const auto type = mDump.properties.find("ro.logsystem.usertype");
        if (type != mDump.properties.end()) {
            mMade.profile.properties.insert({type->first, type->second});
        }
        return std::move(mMade);
    }

  private:
    [[noreturn]] void Fail(const std::string& message) const {
        throw InputError(mDump.file, 0, 0, message);
    }

    void Guess(const std::string& field, const std::string& why) { mMade.guesses[field] = why; }

    void MakeName(const std::string& name) {
        std::string text = name;
        for (const char* property : {"ro.soc.model", "ro.board.platform", "ro.product.model"}) {
            const auto found = mDump.properties.find(property);
            if (text.empty() && found != mDump.properties.end()) text = found->second;
        }
        for (char& letter : text) {
            if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
            const bool isPlain = (letter >= 'a' && letter <= 'z') || IsDigit(letter);
            if (!isPlain && letter != '_' && letter != '-') letter = '_';
        }
        mMade.profile.name = text.empty() ? "my_phone" : text;
    }

    // The folders of cpufreq's policies, by their first CPU.
    std::vector<int> Policies() const {
        std::set<int> policies;
        for (const auto& [path, node] : mDump.nodes) {
            if (!path.starts_with(kPolicies)) continue;
            const size_t from = std::string_view(kPolicies).size();
            const auto cpu = ParseNumber(path.substr(from, path.find('/', from) - from));
            if (cpu && *cpu >= 0) policies.insert(static_cast<int>(*cpu));
        }
        return {policies.begin(), policies.end()};
    }

    static std::string PolicyNode(int policy, const std::string& leaf) {
        return kPolicies + std::to_string(policy) + "/" + leaf;
    }

    // Of the policy, or of its first CPU, whose folder is a link to it.
    std::optional<int64_t> PolicyNumber(int policy, const std::string& leaf) const {
        if (const auto number = mDump.Number(PolicyNode(policy, leaf))) return number;
        return mDump.Number(fmt::format("{}cpu{}/cpufreq/{}", kCpus, policy, leaf));
    }

    std::vector<int64_t> StepsOf(int policy, std::string& guess) const {
        std::vector<int64_t> steps;
        for (const char* leaf : {"scaling_available_frequencies", "scaling_boost_frequencies"}) {
            if (const auto some = mDump.Numbers(PolicyNode(policy, leaf))) {
                steps.insert(steps.end(), some->begin(), some->end());
            }
        }
        if (!steps.empty()) return TableOf(std::move(steps), kMostKhz);
        guess = "the dump has no table; these are its ends, the steps between are unknown";
        for (const char* leaf : {"cpuinfo_min_freq", "cpuinfo_max_freq"}) {
            if (const auto end = PolicyNumber(policy, leaf)) steps.push_back(*end);
        }
        return TableOf(std::move(steps), kMostKhz);
    }

    void MakeClusters() {
        const std::vector<int> policies = Policies();
        if (policies.empty()) Fail("the dump has no cpufreq policy, which tells the clusters");
        const auto possible = mDump.Value(std::string(kCpus) + "possible");
        const std::vector<int> all = CpusOf(possible.value_or(""));
        std::vector<CpuCluster>& clusters = mMade.profile.clusters;
        for (size_t i = 0; i < policies.size(); ++i) {
            const int policy = policies[i];
            std::vector<int> cpus =
                CpusOf(mDump.Value(PolicyNode(policy, "related_cpus")).value_or(""));
            CpuCluster& cluster = clusters.emplace_back();
            const bool isTold = !cpus.empty();
            if (!isTold)
                cpus = Between(policy, i + 1 < policies.size() ? policies[i + 1] : -1, all);
            const int due = i == 0 ? 0 : clusters[i - 1].lastCpu + 1;
            if (cpus.front() != due) {
                Fail(
                    fmt::format("policy{} begins with CPU {}, but CPU {} is in no policy: were its "
                                "cluster's CPUs offline? switch them on and dump again",
                                policy, cpus.front(), due));
            }
            if (cpus.back() - cpus.front() + 1 != static_cast<int>(cpus.size())) {
                Fail(fmt::format("the CPUs of policy{} are no range: {}", policy,
                                 fmt::format("{}", fmt::join(cpus, " "))));
            }
            cluster.firstCpu = cpus.front();
            cluster.lastCpu = cpus.back();
            std::string guess;
            cluster.khz = StepsOf(policy, guess);
            if (cluster.khz.empty()) {
                Fail(fmt::format("the dump tells no frequency of policy{}", policy));
            }
            cluster.rtgBoostKhz = std::clamp<int64_t>(
                PolicyNumber(policy, "walt/rtg_boost_freq").value_or(0), 0, kMostKhz);
            if (!guess.empty()) mTableGuesses[i] = guess;
            if (!isTold) mCpuGuesses[i] = "no related_cpus in the dump: up to the next policy";
        }
        if (!all.empty() && all.back() > clusters.back().lastCpu) {
            Fail(
                fmt::format("CPU {} is in no policy: was its cluster offline? switch its CPUs on "
                            "and dump again",
                            all.back()));
        }
        NameClusters();
    }

    static std::vector<int> Between(int policy, int next, const std::vector<int>& all) {
        const int last = next >= 0 ? next - 1 : all.empty() ? policy : all.back();
        std::vector<int> cpus;
        for (int cpu = policy; cpu <= std::max(last, policy); ++cpu) cpus.push_back(cpu);
        return cpus;
    }

    // The first is little, the last big or prime; of several between, the widest is big.
    void NameClusters() {
        std::vector<CpuCluster>& clusters = mMade.profile.clusters;
        const auto width = [](const CpuCluster& one) { return one.lastCpu - one.firstCpu; };
        for (size_t i = 0; i < clusters.size(); ++i) clusters[i].name = fmt::format("other{}", i);
        clusters.front().name = "little";
        if (clusters.size() == 2) clusters[1].name = "big";
        if (clusters.size() > 2) {
            const auto widest = std::max_element(
                clusters.begin() + 1, clusters.end() - 1,
                [&](const CpuCluster& a, const CpuCluster& b) { return width(a) < width(b); });
            widest->name = "big";
            clusters.back().name = "prime";
            if (clusters.size() > 3) {
                Guess("big name", "of the clusters between the first and the last the widest");
            }
        }
        for (const auto& [i, why] : mTableGuesses) Guess(clusters[i].name + " khz", why);
        for (const auto& [i, why] : mCpuGuesses) Guess(clusters[i].name + " cpus", why);
        GuessLittle();
    }

    // A first cluster that is nearly as strong as the last is none of little cores.
    void GuessLittle() {
        const std::vector<CpuCluster>& clusters = mMade.profile.clusters;
        const auto capacity = [&](const CpuCluster& cluster) {
            return mDump.Number(fmt::format("{}cpu{}/cpu_capacity", kCpus, cluster.firstCpu));
        };
        const auto first = capacity(clusters.front());
        const auto last = capacity(clusters.back());
        if (clusters.size() == 1 || !first || !last || *last <= 0 || *first * 2 < *last) return;
        Guess("little name",
              fmt::format("its cores have {} % of the last cluster's capacity and are none of the "
                          "little kind; the plug-in calls the first cluster so all the same, and "
                          "little_ tags and keys limit it",
                          *first * 100 / *last));
    }

    void MakeGpu() {
        DeviceProfile& profile = mMade.profile;
        const std::string folder = kGpu;
        std::vector<int64_t> mhz;
        if (const auto table = mDump.Numbers(folder + "freq_table_mhz")) mhz = *table;
        for (const char* leaf : {"gpu_available_frequencies", "devfreq/available_frequencies"}) {
            const auto table = mDump.Numbers(folder + leaf);
            if (!mhz.empty() || !table) continue;
            for (const int64_t hz : *table) mhz.push_back(hz / kHzPerMhz);
        }
        mhz = TableOf(std::move(mhz), kMostMhz);
        if (mhz.empty()) {
            const auto low = mDump.Number(folder + "min_clock_mhz");
            const auto high = mDump.Number(folder + "max_gpuclk");
            if (low && high) mhz = TableOf({*low, *high / kHzPerMhz}, kMostMhz);
            Guess("gpu mhz", mhz.empty() ? "the dump tells nothing of the GPU"
                                         : "the dump has no table; these are its ends");
            if (mhz.empty()) mhz = TableOf(kSomeGpu, kMostMhz);
        }
        std::reverse(mhz.begin(), mhz.end());
        profile.gpuMhz = mhz;
        const auto level = mDump.Number(folder + "default_pwrlevel");
        const auto now = mDump.Number(folder + "devfreq/cur_freq");
        profile.gpuInitialMhz = mhz.back();
        if (level && *level >= 0 && *level < static_cast<int64_t>(mhz.size())) {
            profile.gpuInitialMhz = mhz[static_cast<size_t>(*level)];
        } else if (now && std::find(mhz.begin(), mhz.end(), *now / kHzPerMhz) != mhz.end()) {
            profile.gpuInitialMhz = *now / kHzPerMhz;
            Guess("gpu initial_mhz",
                  "no level of the table by default_pwrlevel in the dump; what it ran at");
        } else {
            Guess("gpu initial_mhz",
                  "no level of the table by default_pwrlevel in the dump; the lowest");
        }
    }

    // Of "…/bus_dcvs/DDR/19091000.qcom,bwmon-ddr/min_freq" the two folders, as the dump has them.
    void MakeBuses() {
        std::map<int, std::string> folders;  // by line
        for (const auto& [path, node] : mDump.nodes) {
            if (!path.starts_with(kBuses) || !path.ends_with("/min_freq")) continue;
            if (node.state == PhoneDump::State::kMissing) continue;
            const size_t from = std::string_view(kBuses).size();
            const std::string folder = path.substr(from, path.rfind('/') - from);
            if (std::count(folder.begin(), folder.end(), '/') != 1) continue;
            folders[node.line] = folder;
        }
        for (const auto& [line, folder] : folders) MakeBus(folder);
    }

    // The monitor's ends now, and the bus's steps between them.
    void MakeBus(const std::string& folder) {
        const std::string bus = kBuses + folder.substr(0, folder.find('/')) + "/";
        const std::string monitor = kBuses + folder + "/";
        const auto low = mDump.Number(monitor + "min_freq");
        const auto high = mDump.Number(monitor + "max_freq");
        std::vector<int64_t> steps =
            TableOf(mDump.Numbers(bus + "available_frequencies").value_or(std::vector<int64_t>{}),
                    kMostKhz);
        if (low && high) {
            std::erase_if(steps, [&](int64_t step) { return step < *low || step > *high; });
        }
        if (steps.empty() && low && high) {
            steps = TableOf({*low, *high}, kMostKhz);
            Guess(folder + " khz", "the range; the steps between are not in the dump");
        }
        if (steps.empty()) return;
        BusMonitor& made = mMade.profile.buses.emplace_back();
        made.folder = folder;
        made.khz = steps;
        const PhoneDump::State window = mDump.StateOf(monitor + "sample_ms");
        made.isBandwidthMonitor =
            window == PhoneDump::State::kRead || window == PhoneDump::State::kUnreadable;
    }

    const PhoneDump& mDump;
    MadeProfile mMade;
    std::map<size_t, std::string> mTableGuesses;  // by cluster
    std::map<size_t, std::string> mCpuGuesses;
};

// Adds what of `paths` the phone lacks, unless it lacks nothing.
void AddLacking(const PhoneDump& dump, LackingNodes lacking, const std::vector<std::string>& paths,
                std::vector<LackingNodes>& all) {
    lacking.all = paths.size();
    for (const std::string& path : paths) {
        const PhoneDump::State state = dump.StateOf(path);
        if (state != PhoneDump::State::kRead) lacking.paths[state].push_back(path);
    }
    const auto missing = lacking.paths.find(PhoneDump::State::kMissing);
    const bool isOfFirstCpu = missing != lacking.paths.end() &&
                              missing->second.front().find("/core_ctl/") != std::string::npos &&
                              missing->second.size() + 1 == lacking.all;
    if (!lacking.paths.empty() && !isOfFirstCpu) all.push_back(std::move(lacking));
}

}  // namespace

MadeProfile MakeProfile(const PhoneDump& dump, const std::string& name) {
    return Maker(dump).Make(name);
}

std::vector<LackingNodes> FindLackingNodes(const PhoneDump& dump, const DeviceProfile& profile) {
    const Layout layout = LayoutOf(profile);
    std::vector<LackingNodes> all;
    for (int tag = 0; tag <= kHighestTag; ++tag) {
        AddLacking(dump, {TagLabel(tag, layout), tag}, TagNodes(tag, profile), all);
    }
    for (const tarquel::InterPath& row : tarquel::kInterPaths) {
        AddLacking(dump, {std::string(row.key)}, {row.path}, all);
    }
    return all;
}

}  // namespace lab

// Measures what the plug-in adds to the calls that it must make. ./dev bench builds and runs it.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <elf.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/configuration.h"
#include "bench/facts.h"
#include "bench/plugin.h"
#include "bench/quiet_phone.h"
#include "bench/requests.h"
#include "bench/results.h"

namespace bench {

namespace {

constexpr char kFloorSuffix[] = ":floor";

constexpr char kUsage[] =
    R"(usage: tarquel-bench [--quick] [--json FILE] [--benchmark_OPTION...]

Measures the built library on a phone that does nothing, each request beside the bare
system calls and HAL calls that it is prescribed to make. Cases and floors run interleaved
in random order; reported is the CPU time of the fastest repetition: the machine's other
load only ever adds to it. Medians stand in the JSON.

  --quick      few repetitions: shows that everything runs, not how fast
  --json FILE  writes the results as JSON, too

Options of Google Benchmark choose cases, for example
  tarquel-bench --benchmark_filter=DoAction
)";

// The statistics that are read: Google Benchmark's, and our own.
constexpr char kMedian[] = "median";
constexpr char kFastest[] = "fastest";

double Fastest(const std::vector<double>& times) {
    return *std::min_element(times.begin(), times.end());
}

template <typename Run>
benchmark::internal::Benchmark* AddBenchmark(const std::string& name, const Run& run) {
    return benchmark::RegisterBenchmark(name.c_str(), run)->ComputeStatistics(kFastest, Fastest);
}

double CpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Runs `timed` once an iteration; only its CPU time counts, not what `after` takes.
template <typename Timed, typename After>
void RunTimed(benchmark::State& state, const Timed& timed, const After& after) {
    for (auto _ : state) {
        const double start = CpuSeconds();
        auto made = timed();
        state.SetIterationTime(CpuSeconds() - start);
        after(made);
    }
}

// A case as it stands in the table: the time of an iteration is that of `units` units.
struct Row {
    Timing timing;
    double units = 1;
};

// Takes the mark from a library that keeps it mapped for good, so that it can be loaded again.
void LetBeUnmapped(const std::string& file) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    const auto at = [&stream](uint64_t offset, auto& record) {
        stream.seekg(static_cast<std::streamoff>(offset));
        stream.read(reinterpret_cast<char*>(&record), sizeof(record));
    };
    Elf64_Ehdr header{};
    at(0, header);
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment{};
        at(header.e_phoff + i * sizeof(segment), segment);
        if (segment.p_type != PT_DYNAMIC) continue;
        for (uint64_t used = 0; used < segment.p_filesz; used += sizeof(Elf64_Dyn)) {
            Elf64_Dyn entry{};
            at(segment.p_offset + used, entry);
            if (entry.d_tag != DT_FLAGS_1) continue;
            entry.d_un.d_val &= ~Elf64_Xword{DF_1_NODELETE};
            stream.seekp(static_cast<std::streamoff>(segment.p_offset + used));
            stream.write(reinterpret_cast<const char*>(&entry), sizeof(entry));
        }
    }
    if (!stream) throw std::runtime_error("cannot change " + file);
}

class Suite {
  public:
    Suite() : mFacts(MeasureMemory(mPlugin)) {
        const std::vector<Fact> file = DescribeLibraryFile();
        mFacts.insert(mFacts.end(), file.begin(), file.end());
        mRequests = MakeRequests(mPlugin, mPhone);
    }

    void Register() {
        for (const Request& request : mRequests) RegisterRequest(request);
        for (const int commands : {100, 1000, 10000}) RegisterLoader(commands);
        RegisterStart();
        RegisterLoad();
    }

    // Takes a statistic of one benchmark, of `name` with its suffix.
    void Take(const std::string& name, const std::string& statistic, double ns) {
        const size_t suffix = name.rfind(kFloorSuffix);
        const bool isFloor = suffix != std::string::npos;
        std::string key = name;
        if (isFloor) key.erase(suffix, std::strlen(kFloorSuffix));
        const auto found = mRows.find(key);
        if (found == mRows.end()) return;
        Timing& timing = found->second.timing;
        const double unitNs = ns / found->second.units;
        if (statistic == kFastest) {
            (isFloor ? timing.floorNs : timing.ns) = unitNs;
        } else if (statistic == kMedian) {
            (isFloor ? timing.floorMedianNs : timing.medianNs) = unitNs;
        }
    }

    Results Finish() const {
        Results results;
        for (const std::string& name : mOrder) {
            const Timing& timing = mRows.at(name).timing;
            if (timing.ns > 0) results.timings.push_back(timing);
        }
        results.facts = mFacts;
        results.nodesFolder = mPhone.Root();
        return results;
    }

  private:
    void AddRow(const std::string& name, const std::string& unit, double units, Target target,
                long long allocations) {
        mOrder.push_back(name);
        mRows[name] = {{.name = name, .unit = unit, .target = target, .allocations = allocations},
                       units};
    }

    void RegisterRequest(const Request& request) {
        AddRow(request.name, "request", 1, request.target, WarmAllocations(request));
        const auto measure = [&request](benchmark::State& state) {
            if (state.thread_index() == 0) request.enter();
            for (auto _ : state) request.run();
            if (state.thread_index() == 0) request.leave();
        };
        const auto floor = [&request](benchmark::State& state) {
            for (auto _ : state) request.floor();
        };
        auto* const measured = AddBenchmark(request.name, measure);
        auto* const bare = AddBenchmark(request.name + kFloorSuffix, floor);
        if (!request.isThreaded) return;
        for (const int threads : {2, 4}) {
            AddRow(request.name + "/threads:" + std::to_string(threads), "request", 1, {}, -1);
        }
        for (const int threads : {1, 2, 4}) {
            measured->Threads(threads);
            bare->Threads(threads);
        }
    }

    void RegisterLoader(int commands) {
        const std::string name = "BM_Loader_ParserXml/" + std::to_string(commands) + "_commands";
        AddRow(name, "key", double{kKeysPerCommand} * commands, {0, 100}, -1);
        const auto configuration = std::make_shared<Configuration>(commands);
        RegisterTimed(
            name, [this, configuration] { return mPlugin.Parse(configuration->Commands()); },
            [](ActionMap* actions) { FreeActions(actions); });
        RegisterTimed(
            name + kFloorSuffix, [configuration] { return configuration->Sum(); },
            [](unsigned sum) { benchmark::DoNotOptimize(sum); });

        const std::string blocks = "BM_Loader_Blocks/" + std::to_string(commands) + "_commands";
        AddRow(blocks, "key", double{kKeysPerCommand} * commands, {}, -1);
        RegisterTimed(
            blocks, [commands] { return AllocateBlocks(commands); },
            [](const std::unique_ptr<HeapBlocks>& made) { benchmark::DoNotOptimize(made.get()); });
    }

    void RegisterStart() {
        const auto openHal = [] {
            void* const hal = dlopen(kHalName, RTLD_NOW);
            benchmark::DoNotOptimize(dlsym(hal, "perf_lock_acq"));
            benchmark::DoNotOptimize(dlsym(hal, "perf_lock_rel"));
            return hal;
        };
        const auto close = [](void* library) { dlclose(library); };

        const std::string initialize = "BM_Platform_Initialize/one_adapter";
        AddRow(initialize, "start", 1, {1.3, 0}, -1);
        RegisterTimed(
            initialize,
            [this] {
                mPlugin.Initialize();
                return 0;
            },
            [this](int) { mPlugin.Shutdown(); }, [this] { mPlugin.Shutdown(); },
            [this] { mPlugin.Initialize(); });
        RegisterTimed(
            initialize + kFloorSuffix,
            [openHal] {
                void* const hal = openHal();
                ReadDefaultNodes();
                return hal;
            },
            close);
    }

    // Loads copies of the libraries: the plug-in itself is in use, and stays mapped once loaded.
    void RegisterLoad() {
        const auto registerLoad = [this](const std::string& name, const std::string& library) {
            const std::string copy = mPhone.Root() + "/" + name.substr(name.rfind('/') + 1);
            std::filesystem::copy_file(library, copy);
            LetBeUnmapped(copy);
            RegisterTimed(
                name, [copy] { return dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL); },
                [](void* loaded) { dlclose(loaded); });
        };
        const std::string name = "BM_Platform_Load/library";
        AddRow(name, "load", 1, {}, -1);
        registerLoad(name, TARQUEL_PLUGIN);
        registerLoad(name + kFloorSuffix, TARQUEL_EMPTY_LIBRARY);
    }

    template <typename Timed, typename After>
    void RegisterTimed(
        const std::string& name, const Timed& timed, const After& after,
        const std::function<void()>& enter = [] {}, const std::function<void()>& leave = [] {}) {
        const auto run = [=](benchmark::State& state) {
            enter();
            RunTimed(state, timed, after);
            leave();
        };
        AddBenchmark(name, run)->UseManualTime();
    }

    QuietPhone mPhone;
    Plugin mPlugin;
    std::vector<Fact> mFacts;
    std::vector<Request> mRequests;
    std::vector<std::string> mOrder;
    std::map<std::string, Row> mRows;
};

// Hands the statistics to the suite.
class StatisticsReporter : public benchmark::BenchmarkReporter {
  public:
    explicit StatisticsReporter(Suite& suite) : mSuite(suite) {}

    bool ReportContext(const Context& context) override {
        mMachine = std::to_string(context.cpu_info.num_cpus) + " CPUs of " +
                   std::to_string(static_cast<int>(context.cpu_info.cycles_per_second / 1e6)) +
                   " MHz";
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Aggregate) continue;
            const bool isManual = !run.run_name.time_type.empty();
            std::string name = run.run_name.function_name;
            if (run.threads > 1) name += "/" + run.run_name.threads;
            mSuite.Take(name, run.aggregate_name,
                        isManual ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime());
        }
    }

    const std::string& Machine() const { return mMachine; }

  private:
    Suite& mSuite;
    std::string mMachine;
};

int Main(int argc, char** argv) {
    std::string json;
    bool isQuick = false;
    std::vector<std::string> options{argv[0]};
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (option == "--quick") {
            isQuick = true;
        } else if (option == "--json" && i + 1 < argc) {
            json = argv[++i];
        } else {
            options.push_back(option);
        }
    }
    for (const char* const option :
         {"--benchmark_enable_random_interleaving=true",
          isQuick ? "--benchmark_repetitions=3" : "--benchmark_repetitions=201",
          "--benchmark_min_time=0.001"}) {
        options.insert(options.begin() + 1, option);
    }
    std::vector<char*> arguments;
    for (std::string& option : options) arguments.push_back(option.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

    Suite suite;
    suite.Register();
    StatisticsReporter reporter(suite);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    Results results = suite.Finish();
    results.machine = reporter.Machine();
    Print(results);
    if (!json.empty()) WriteJson(results, json);
    return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    try {
        return bench::Main(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tarquel-bench: %s\n", error.what());
        return 2;
    }
}

// tarquel-soak: random requests of several threads, on the virtual and on the real clock, and a
// look at what they leave behind.
#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <random>
#include <thread>

#include "fuzz/desk.h"
#include "fuzz/finding.h"

namespace fuzz {
namespace {

constexpr int kFine = 0;
constexpr int kFindings = 1;
constexpr int kCannotRun = 2;

constexpr uint64_t kRequestsPerRound = 2000;
constexpr size_t kMostFindings = 20;

// What may be allocated or resident at the end beyond the tenth of the requests that warm up.
constexpr int64_t kMostHeapGrowth = 256 * 1024;
constexpr int64_t kMostResidentGrowth = 16 * 1024 * 1024;

// Blocks of this size and above are the recorder's list of events, whose room follows the busiest
// round; they lie apart from the heap.
constexpr int kBigBlock = 1024 * 1024;

constexpr char kFooter[] =
    "  tarquel-soak 1000000\n"
    "  tarquel-soak --seed 42 --threads 8 20000\n"
    "\n"
    "Nine tenths of the requests run on the virtual clock, on two devices, the rest on the real\n"
    "clock. After each round all that was begun is let go; what is held then belongs to nobody.\n"
    "Returns 0 when nothing is left and memory did not grow, 1 for findings, 2 for wrong usage.";

struct Options {
    uint64_t requests = 1'000'000;
    uint64_t seed = 0;
    unsigned threads = 4;
};

struct Phase {
    std::string device;
    bool realtime = false;
    uint64_t requests = 0;
};

int64_t HeapInUse() {
    return static_cast<int64_t>(mallinfo2().uordblks);
}

int64_t Resident() {
    long pages = 0;
    if (FILE* const file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
        std::fclose(file);
    }
    return pages * sysconf(_SC_PAGESIZE);
}

double MiB(int64_t bytes) {
    return static_cast<double>(bytes) / (1024 * 1024);
}

// One device on one clock.
class Soak {
  public:
    Soak(const Phase& phase, const Options& options)
        : mPhase(phase),
          mOptions(options),
          mDesk(phase.device, PhoneOptions(phase)),
          mMaker(mDesk.Device(), mDesk.Scenes(), MakerOptions(phase)),
          mCalls(mDesk.Device()) {
        mDesk.SetConcurrent(true);
        if (phase.realtime) ShortenCommands();
    }

    // Prints the figures; returns what is wrong.
    std::vector<std::string> Run() {
        const auto start = std::chrono::steady_clock::now();
        const int64_t residentAtStart = Resident();
        uint64_t done = 0;
        while (done < mPhase.requests && mFindings.empty()) {
            const uint64_t count = std::min(kRequestsPerRound, mPhase.requests - done);
            PlayRound(count, mOptions.seed + mRound++);
            LetGo();
            done += count;
            if (mHeapWarm == 0 && done * 10 >= mPhase.requests) {
                mHeapWarm = HeapInUse();
                mResidentWarm = Resident();
            }
            if (done * 2 <= mPhase.requests || mResidentMiddle == 0) mResidentMiddle = Resident();
        }
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        Judge();
        const Counts& totals = mCalls.Totals();
        std::cout << fmt::format(
            "{} on the {} clock: {} requests in {:.1f} s, {:.0f} requests/s\n"
            "  locks        {} taken, {} renewed, {} released, {} expired, {} refused\n"
            "  node writes  {}, of which the kernel refused {}\n"
            "  resident     {:.1f} MiB at the start, {:.1f} in the middle, {:.1f} at the end\n"
            "  heap         {:+.1f} KiB since the first tenth (at most {} KiB)\n",
            mPhase.device, mPhase.realtime ? "real" : "virtual", done, seconds.count(),
            static_cast<double>(done) / seconds.count(), totals.taken, totals.renewed,
            totals.released, totals.expired, totals.refused, totals.nodeWrites, totals.nodeRefusals,
            MiB(residentAtStart), MiB(mResidentMiddle), MiB(Resident()),
            static_cast<double>(mHeapWarm == 0 ? 0 : HeapInUse() - mHeapWarm) / 1024,
            kMostHeapGrowth / 1024);
        return mFindings;
    }

  private:
    static lab::Phone::Options PhoneOptions(const Phase& phase) {
        lab::Phone::Options options;
        options.realtime = phase.realtime;
        return options;
    }

    static RequestMaker::Options MakerOptions(const Phase& phase) {
        RequestMaker::Options options;
        if (!phase.realtime) return options;
        options.longestMs = kRealLongestMs;
        options.longestWaitMs = 1;
        options.leastOnDemandMs = 1;
        return options;
    }

    // On the real clock nobody waits for a boost of eight seconds.
    void ShortenCommands() {
        for (const lab::SceneCommand& command : mDesk.Scenes().Commands()) {
            mDesk.GetPhone().SetOnDemandDuration(command.id, kRealLongestMs);
        }
    }

    void PlayRound(uint64_t count, uint64_t seed) {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < mOptions.threads; ++i) {
            const uint64_t share = count / mOptions.threads + (i < count % mOptions.threads);
            threads.emplace_back([this, share, seed, i] {
                RandomSource source(seed * 1'000'003 + i);
                for (uint64_t n = 0; n < share; ++n) Make(mMaker.Draw(source));
            });
        }
        for (std::thread& thread : threads) thread.join();
    }

    void Make(const Deed& deed) {
        if (deed.afterMs > 0) Pass(deed.afterMs);
        try {
            mDesk.Perform(deed);
        } catch (const Finding& finding) {
            Add(fmt::format("{}: {}", Describe(deed), finding.what()));
        }
    }

    void Pass(int64_t ms) {
        lab::Clock& clock = mDesk.GetPhone().GetClock();
        clock.AdvanceTo(clock.Now() + std::chrono::milliseconds(ms));
    }

    // Ends all that was begun, alone, and looks at what is left.
    void LetGo() {
        mDesk.Mend();
        const int64_t allRunsOutMs = mPhase.realtime ? 3 * kRealLongestMs : 120'000;
        Pass(allRunsOutMs);
        for (const Deed& deed : mDesk.Endings()) Make(deed);
        Pass(allRunsOutMs);
        ReadEvents();
        for (const int handle : std::set<int>(mCalls.Lost())) {
            mDesk.GetPhone().Hal().Release(handle);
        }
        ReadEvents();
        mDesk.Forget();
        for (const std::string& finding : mCalls.Findings()) Add(finding);
        for (const std::string& finding : mDesk.Leftovers()) Add(finding);
    }

    void ReadEvents() {
        for (const lab::Event& event : mDesk.GetPhone().Events().Events()) mCalls.Observe(event);
        mDesk.GetPhone().Events().Clear();
    }

    void Judge() {
        if (mHeapWarm == 0) return;  // stopped by a finding before it was warm
        const int64_t heapGrowth = HeapInUse() - mHeapWarm;
        const int64_t residentGrowth = Resident() - mResidentWarm;
        if (heapGrowth > kMostHeapGrowth) {
            Add(fmt::format("{} KiB more are allocated than after the first tenth",
                            heapGrowth / 1024));
        }
        if (residentGrowth > kMostResidentGrowth) {
            Add(fmt::format("{:.1f} MiB more are resident than after the first tenth",
                            MiB(residentGrowth)));
        }
    }

    void Add(const std::string& finding) {
        const std::lock_guard<std::mutex> guard(mMutex);
        if (mFindings.size() < kMostFindings) {
            mFindings.push_back(fmt::format("{}, round {}: {}", mPhase.device, mRound, finding));
        }
    }

    static constexpr int kRealLongestMs = 20;

    const Phase mPhase;
    const Options mOptions;
    Desk mDesk;
    RequestMaker mMaker;
    CallRules mCalls;
    uint64_t mRound = 0;
    int64_t mHeapWarm = 0;
    int64_t mResidentWarm = 0;
    int64_t mResidentMiddle = 0;
    std::mutex mMutex;
    std::vector<std::string> mFindings;
};

int Run(const Options& options) {
    mallopt(M_MMAP_THRESHOLD, kBigBlock);
    std::cout << fmt::format("{} requests of {} threads, seed {}\n", options.requests,
                             options.threads, options.seed);
    const uint64_t virtualShare = options.requests * 45 / 100;
    std::vector<std::string> findings;
    for (const Phase& phase :
         {Phase{"sm8450", false, virtualShare}, Phase{"sm4450", false, virtualShare},
          Phase{"sm8450", true, options.requests - 2 * virtualShare}}) {
        for (std::string& finding : Soak(phase, options).Run()) {
            findings.push_back(std::move(finding));
        }
        std::cout << std::flush;
    }
    for (const std::string& finding : findings) std::cout << "  ! " << finding << "\n";
    if (!findings.empty()) {
        std::cout << fmt::format(
            "Findings: {}; again with: tarquel-soak --seed {} --threads {} "
            "{}\n",
            findings.size(), options.seed, options.threads, options.requests);
        return kFindings;
    }
    std::cout << "Nothing is left: no lock that belongs to nobody, no limit, no memory.\n";
    return kFine;
}

}  // namespace
}  // namespace fuzz

int main(int argc, char** argv) {
    CLI::App app("Makes random requests of several threads and looks at what they leave behind.",
                 "tarquel-soak");
    fuzz::Options options;
    options.seed = std::random_device()();
    app.add_option("requests", options.requests, "How many (default: 1000000)")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1'000'000'000}));
    app.add_option("--seed", options.seed, "Where the random choices begin (default: any)");
    app.add_option("--threads", options.threads, "Threads that make requests (default: 4)")
        ->check(CLI::Range(1U, 64U));
    app.footer(fuzz::kFooter);
    try {
        app.parse(argc, argv);
        return fuzz::Run(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? fuzz::kFine : fuzz::kCannotRun;
    } catch (const std::exception& error) {
        std::cerr << "tarquel-soak: " << error.what() << "\n";
        return fuzz::kCannotRun;
    }
}

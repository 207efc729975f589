// tarquel-exhaust: every sequence of a few requests, on the plug-in and by the rule of limits.
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "fuzz/exhaustion.h"

namespace fuzz {
namespace {

constexpr int kFine = 0;
constexpr int kFindings = 1;
constexpr int kCannotRun = 2;

constexpr char kFooter[] =
    "  tarquel-exhaust 4 --alphabet range --device sm8450\n"
    "\n"
    "Sequences of up to --each requests are played one by one. Of longer ones that lead to the "
    "same\n"
    "state only one is played on; --tries of these merges are tried with random requests.\n"
    "Returns 0 when the phone is always as the rule says, 1 with the shortest sequence after which "
    "it\n"
    "is not, as a scenario, 2 for wrong usage.";

constexpr size_t kLongest = 50;
constexpr size_t kTriedRequests = 6;  // that each tried merge is played on with

struct Options {
    size_t length = 6;
    size_t each = 4;
    size_t tries = 20'000;
    uint64_t seed = 1;
    unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
    std::vector<std::string> alphabets = AlphabetNames();
    std::vector<std::string> devices = {"sm8450", "sm4450"};
};

// An alphabet on a device, in a process of its own: a program has one phone, and one plug-in.
struct Job {
    std::string alphabet;
    std::string device;
    FILE* output = nullptr;
    pid_t process = 0;
    bool isOver = false;
    int status = 0;
};

// The processor's time for this process: other programs may run beside.
double Seconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

std::string TitleRow() {
    return fmt::format("{:<9} {:<7} {:>7} {:>10} {:>7} {:>10} {:>9} {:>10} {:>8} {:>7}\n",
                       "alphabet", "device", "letters", "one by one", "s", "stand for", "states",
                       "played", "s", "tried s");
}

// Returns the row of the alphabet, or what was found.
std::pair<std::string, int> Play(const Job& job, const Options& options) {
    Referee referee(job.device);
    const std::vector<Alphabet> alphabets = Alphabets(referee.Device(), referee.Scenes());
    const Alphabet& alphabet =
        *std::find_if(alphabets.begin(), alphabets.end(),
                      [&job](const Alphabet& known) { return known.name == job.alphabet; });
    const size_t letters = alphabet.letters.size();
    Exhaustion exhaustion(referee, alphabet);
    const size_t each = std::min(options.each, options.length);
    const double start = Seconds();
    std::optional<CounterExample> example = exhaustion.PlayEach(each);
    const double eachSeconds = Seconds() - start;
    if (!example && options.length > each) example = exhaustion.PlayMerged(options.length);
    const double mergedSeconds = Seconds() - start - eachSeconds;
    if (!example) example = exhaustion.TryMerges(options.tries, kTriedRequests, options.seed);
    if (example) {
        return {fmt::format("{} on {} differs:\n\n{}\n", job.alphabet, job.device,
                            ScenarioOf(*example, job.device)),
                kFindings};
    }
    const double triedSeconds = Seconds() - start - eachSeconds - mergedSeconds;
    return {
        fmt::format("{:<9} {:<7} {:>7} {:>10.0f} {:>7.1f} {:>10.3g} {:>9} {:>10} {:>8.1f} "
                    "{:>7.1f}\n",
                    job.alphabet, job.device, letters, Exhaustion::SequenceCount(letters, each),
                    eachSeconds, Exhaustion::SequenceCount(letters, options.length),
                    exhaustion.StateCount(), exhaustion.PlayedCount(), mergedSeconds, triedSeconds),
        kFine};
}

void Begin(Job& job, const Options& options) {
    job.output = std::tmpfile();
    std::cout.flush();
    job.process = job.output == nullptr ? -1 : fork();
    if (job.process < 0) throw std::runtime_error("no process can be started");
    if (job.process > 0) return;
    int code = kCannotRun;
    try {
        const auto [text, result] = Play(job, options);
        std::fputs(text.c_str(), job.output);
        code = result;
    } catch (const std::exception& error) {
        std::fprintf(job.output, "%s on %s: %s\n", job.alphabet.c_str(), job.device.c_str(),
                     error.what());
    }
    std::fflush(job.output);
    _exit(code);
}

// Waits until one of them is over.
void AwaitOne(std::vector<Job>& jobs) {
    int status = 0;
    const pid_t process = wait(&status);
    for (Job& job : jobs) {
        if (job.process != process) continue;
        job.isOver = true;
        job.status = status;
    }
}

// Prints what it said; returns its exit code.
int Report(Job& job) {
    std::rewind(job.output);
    char line[1024];
    while (std::fgets(line, sizeof line, job.output) != nullptr) std::cout << line;
    std::fclose(job.output);
    if (WIFEXITED(job.status)) return WEXITSTATUS(job.status);
    std::cout << fmt::format("{} on {} ended with signal {}\n", job.alphabet, job.device,
                             WTERMSIG(job.status));
    return kFindings;
}

int Run(const Options& options) {
    std::vector<Job> jobs;
    for (const std::string& alphabet : options.alphabets) {
        for (const std::string& device : options.devices) jobs.push_back({alphabet, device});
    }
    std::cout << TitleRow();
    int code = kFine;
    size_t begun = 0;
    size_t over = 0;
    for (size_t told = 0; told < jobs.size(); ++told) {
        while (!jobs[told].isOver) {
            while (begun < jobs.size() && begun - over < options.jobs) {
                Begin(jobs[begun], options);
                ++begun;
            }
            AwaitOne(jobs);
            ++over;
        }
        code = std::max(code, Report(jobs[told]));
        std::cout.flush();
    }
    if (code == kFine) std::cout << "The phone is always as the rule of limits says.\n";
    return code;
}

}  // namespace
}  // namespace fuzz

int main(int argc, char** argv) {
    using namespace fuzz;
    CLI::App app("Plays every sequence of a few requests and compares plug-in and rule of limits.");
    app.footer(kFooter);
    Options options;
    app.add_option("LENGTH", options.length, "how many requests a sequence has at most")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, kLongest));
    app.add_option("--each", options.each,
                   "up to how many requests every sequence is played by itself")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, kLongest));
    app.add_option("--tries", options.tries, "how many merges are tried")->capture_default_str();
    app.add_option("--seed", options.seed, "of what is random about the tries")
        ->capture_default_str();
    app.add_option("--jobs", options.jobs, "how many alphabets are played at once")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
    app.add_option("--alphabet", options.alphabets, "play these alone")
        ->check(CLI::IsMember(AlphabetNames()));
    app.add_option("--device", options.devices, "play on these alone")
        ->check(CLI::IsMember(lab::DeviceProfileNames()));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kFine : kCannotRun;
    }
    try {
        return Run(options);
    } catch (const std::exception& error) {
        std::cerr << "tarquel-exhaust: " << error.what() << "\n";
        return kCannotRun;
    }
}

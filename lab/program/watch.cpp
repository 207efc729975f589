#include "lab/program/watch.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "lab/pictures/output_file.h"

namespace lab {
namespace {

volatile std::sig_atomic_t isToEnd = 0;

void EndSoon(int) {
    isToEnd = 1;
}

// Asks every second for the stamp beside the page, as a script: a page that was opened as a file
// may read nothing else.
constexpr char kReloader[] = R"(<script>
(() => {{
  const label = document.createElement("p");
  label.id = "watched";
  label.hidden = true;
  label.textContent = "No longer watched: what is shown may be stale.";
  document.querySelector("header").append(label);
  window.tarquelWatched = (round) => round === {0} || location.reload();
  const timer = setInterval(() => {{
    const probe = document.createElement("script");
    probe.src = {1} + "?" + Date.now();
    probe.onload = () => probe.remove();
    probe.onerror = () => {{ clearInterval(timer); label.hidden = false; }};
    document.head.append(probe);
  }}, 1000);
}})();
</script>
)";

}  // namespace

Watch::Watch(std::string report) : mReport(std::move(report)) {
    isToEnd = 0;
    struct sigaction action {};
    action.sa_handler = EndSoon;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

Watch::~Watch() {
    if (!mReport.empty()) unlink(StampFile().c_str());
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

std::optional<Watch::Stamp> Watch::StampOf(const std::string& file) {
    std::error_code error;
    Stamp stamp;
    stamp.time = std::filesystem::last_write_time(file, error);
    if (!error) stamp.size = std::filesystem::file_size(file, error);
    return error ? std::nullopt : std::optional(stamp);
}

void Watch::Begin() {
    for (auto& [file, stamp] : mSeen) stamp = StampOf(file);
}

void Watch::End(const std::set<std::string>& files, bool isDrawn) {
    for (const std::string& file : files) mSeen.emplace(file, StampOf(file));
    // A pipe takes no second page.
    if (isDrawn && std::filesystem::is_regular_file(mReport)) MarkReport();
}

size_t Watch::Files() const {
    return static_cast<size_t>(std::count_if(
        mSeen.begin(), mSeen.end(), [](const auto& seen) { return seen.second.has_value(); }));
}

// The stamp follows the page, so that a page is whole when it is asked for again.
void Watch::MarkReport() {
    ++mRound;
    // A page that another process drew has another number.
    const long round = static_cast<long>(getpid()) * 100'000 + mRound;
    const std::string name = std::filesystem::path(StampFile()).filename().string();
    std::ifstream drawn(mReport);
    const std::string page{std::istreambuf_iterator<char>(drawn), {}};
    OutputFile(mReport).Fill([&](std::ostream& out) {
        out << page << fmt::format(kReloader, round, nlohmann::json(name).dump());
    });
    std::ofstream(StampFile()) << fmt::format("window.tarquelWatched({});\n", round);
}

bool Watch::WaitForChange(const std::function<std::vector<std::string>()>& names) {
    const std::vector<std::string> before = names();
    while (isToEnd == 0) {
        for (const auto& [file, stamp] : mSeen) {
            if (StampOf(file) != stamp) return true;
        }
        if (names() != before) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

}  // namespace lab

// Waits until files are edited, for a command that is repeated then.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace lab {

// While there is one, Ctrl-C ends WaitForChange in place of the program.
class Watch {
  public:
    // `report` is the page that the command draws anew; empty when it draws none. Open in a browser
    // it reloads itself while it is watched, and says so when it no longer is.
    explicit Watch(std::string report);
    ~Watch();

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // Before and after the command: what is edited from then on counts. Files once named stay; one
    // that is not there may be made.
    void Begin();
    void End(const std::set<std::string>& files, bool isDrawn);

    // True when a file was written, made or removed, or `names` gives others than it did before;
    // false when the user wants to end. Looks a few times a second.
    bool WaitForChange(const std::function<std::vector<std::string>()>& names);

    // The file beside a report by which it learns that it was drawn anew.
    static std::string StampFileOf(const std::string& report) { return report + ".watched.js"; }

    // How many files there are of those that were named.
    size_t Files() const;

  private:
    struct Stamp {
        std::filesystem::file_time_type time;
        uintmax_t size = 0;
        bool operator==(const Stamp&) const = default;
    };
    static std::optional<Stamp> StampOf(const std::string& file);
    std::string StampFile() const { return StampFileOf(mReport); }
    void MarkReport();

    const std::string mReport;
    int mRound = 0;
    std::map<std::string, std::optional<Stamp>> mSeen;
};

}  // namespace lab

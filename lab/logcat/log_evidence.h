// What a capture's lines show of the phone that it is of.
#pragma once

#include <climits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/logcat/log_reader.h"
#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"

namespace lab {

// How much the plug-in's switches let it write.
enum class LogDetail : uint8_t {
    kErrors,   // both switches off
    kVersion,  // a debug build (ro.logsystem.usertype): without what only SetDebug adds
    kFull,     // SetDebug(true)
};

class LogEvidence {
  public:
    void Add(const CapturedLine& line);

    // How much of the plug-in's lines there is.
    LogDetail Detail() const { return mDetail; }

    // How many of the plug-in's lines the logger says to have dropped.
    int64_t LostLines() const { return mLostLines; }

    // The layout that the lines show; nothing when they fit both.
    std::optional<Layout> ClusterLayout() const { return mLayout; }

    // The shipped device that the lines contradict least, 0: it fits them. Empty when that is none
    // alone.
    struct Nearest {
        std::string device;
        int mismatches = INT_MAX;
    };
    Nearest NearestDevice() const;

    // Which lines contradict `device`, one for each of its clusters and nodes: CPUs that it groups
    // otherwise, frequencies that are no step of its tables.
    std::vector<LogProblem> Contradictions(const DeviceProfile& device) const;

  private:
    struct Seen {
        int line = 0;
        bool isRead = false;  // the phone's kernel has said it; else the plug-in has asked for it
    };

    void AddOpcode(const MessageMatch& match);
    void AddNode(const CapturedLine& line);
    int Mismatches(const DeviceProfile& device) const;

    LogDetail mDetail = LogDetail::kErrors;
    int64_t mLostLines = 0;
    std::optional<Layout> mLayout;
    std::map<int, int> mCpus;  // through which the plug-in reaches its clusters' limits: the line
    std::map<std::string, std::map<int64_t, Seen>> mValues;  // of limit nodes, by path
};

}  // namespace lab

// Plays scenarios and captures on the lab and keeps what happened, for tests of what they have in
// common.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "lab/logcat/log_json.h"
#include "lab/logcat/log_player.h"
#include "lab/logcat/log_session.h"
#include "lab/logcat/log_writer.h"
#include "lab/names/node_names.h"
#include "lab/server/inputs.h"
#include "lab/server/runner.h"

namespace lab {

// A scenario's run: its events as text, and the log that a phone would have written.
struct LabRun {
    std::vector<Event> events;
    std::string log;
};

inline LabRun PlayScenario(const YamlNode& root, const std::string& deviceName, bool debug) {
    ScenarioHead head = ReadScenarioHead(root);
    head.debug = head.debug || debug;
    const DeviceProfile device = LoadDeviceProfile(deviceName);
    SceneFile scenes = SceneFile::Load(FindSceneFile(device.name));
    const std::vector<Step> steps = ReadScenarioSteps(root, scenes);
    Phone phone(device);
    Book book(device, scenes, phone.GetKernel());
    Library library("");
    Server server(phone, library, scenes);
    LabRun run;
    std::ostringstream log;
    LogcatWriter writer(log);
    Runner runner({phone, server, book, device, scenes}, [&](const Event& event) {
        run.events.push_back(event);
        writer.Observe(event);
    });
    runner.Start(head);
    runner.Play(steps);
    runner.Finish();
    run.log = log.str();
    return run;
}

// A capture in a file of its own.
class CaptureFile {
  public:
    explicit CaptureFile(const std::string& text)
        : mPath(testing::TempDir() + "capture-" + std::to_string(getpid()) + ".txt") {
        std::ofstream(mPath, std::ios::binary) << text;
    }
    ~CaptureFile() { std::remove(mPath.c_str()); }
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    LogSession::Options Options(const std::string& device = "") const {
        return {mPath, device, "", "", false};
    }

  private:
    const std::string mPath;
};

// A capture's story and what playing it shows.
struct ToldLog {
    std::vector<LogRequest> requests;
    std::vector<Event> events;
    struct Held {
        BookedLock lock;
        std::string doubt;
    };
    std::vector<Held> held;  // at the end
};

inline ToldLog PlayLog(LogSession& session) {
    ToldLog told;
    Book book(session.Device(), session.Scenes(), session.GetPhone().GetKernel());
    LogPlayer player(session.GetPhone(), [&](const Event& event) {
        book.Observe(event);
        told.events.push_back(event);
    });
    session.Tell([&](LogRequest&& request) {
        player.Play(request);
        told.requests.push_back(std::move(request));
    });
    player.Finish(session.Log().end);
    for (const auto& [handle, lock] : book.Locks()) {
        told.held.push_back({lock, session.DoubtOf(lock, player.DoubtLine(handle))});
    }
    return told;
}

// The events as JSON lines; those that `isWanted` refuses and lines of the input left out.
template <typename Filter>
std::vector<std::string> EventTexts(const std::vector<Event>& events, Layout layout,
                                    const Filter& isWanted) {
    std::vector<std::string> texts;
    for (const Event& event : events) {
        if (!isWanted(event)) continue;
        nlohmann::ordered_json json = EventJson(event, layout);
        json.erase("line");
        texts.push_back(json.dump());
    }
    return texts;
}

}  // namespace lab

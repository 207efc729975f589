// A capture opened for reading its story: the files that go with it, and a phone to play it on.
#pragma once

#include <memory>
#include <string>

#include "lab/logcat/command_lists.h"
#include "lab/logcat/log_story.h"

namespace lab {

// The file of a capture: `name` is a path, "-", or the name of one that ships with the lab.
std::string FindCapture(const std::string& name);

class LogSession {
  public:
    // What the user says; empty where nothing is said.
    struct Options {
        std::string capture;  // a file, the name of a shipped capture, or "-" for standard input
        std::string device;
        std::string scenes;
        std::string library;
    };

    // Reads the capture and its story. Throws InputError for a file that cannot be read or is no
    // log, and what the device, the scenes and the plug-in throw.
    explicit LogSession(const Options& options);

    const Capture& Log() const { return mCapture; }
    const LogStory& Story() const { return mStory; }
    const DeviceProfile& Device() const { return mDevice; }
    const SceneFile& Scenes() const { return mScenes; }
    Phone& GetPhone() { return mPhone; }

    // True when the device was neither named nor shown by the log.
    bool IsDeviceGuessed() const { return mIsDeviceGuessed; }

    // Everything wrong with the capture's lines and its story, by line.
    std::vector<LogProblem> Problems() const;

    // What the log cannot tell for want of a switch, and how to turn it on; empty when it has all.
    std::string DetailAdvice() const;

    // Commands that the scene file does not have, in words; empty when it has all.
    std::string UnknownCommands() const;

  private:
    std::string ChooseDevice(const Options& options);

    Capture mCapture;
    bool mIsDeviceGuessed = false;
    DeviceProfile mDevice;
    SceneFile mScenes;
    Phone mPhone;
    Library mLibrary;
    CommandLists mLists;
    LogStory mStory;
};

}  // namespace lab

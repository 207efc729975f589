// A capture opened for reading its story: the files that go with it, and a phone to play it on.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lab/book/book.h"
#include "lab/logcat/capture_input.h"
#include "lab/logcat/command_lists.h"
#include "lab/logcat/earlier_locks.h"
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
        // True: what comes through a pipe is told as it comes, before it is known how it goes on.
        bool isLive = false;
    };

    // Opens the capture and reads enough of it to know what phone it is of: all of it where it can
    // be read again, else its beginning. Throws InputError for a file that cannot be read or is no
    // log, and what the device, the scenes and the plug-in throw.
    explicit LogSession(const Options& options);

    // Tells the capture's story, once.
    //   request  gets each request, in the order in which they began
    //   pause    nothing more has come through the pipe for a while
    void Tell(
        const std::function<void(LogRequest&&)>& request,
        const std::function<void()>& pause = [] {});

    // As far as the capture has been read and told.
    const Capture& Log() const { return mCapture; }
    const LogStory& Story() const { return mStory; }
    const EarlierLocks& Earlier() const { return mEarlier; }

    // The locks from before the capture, as sure as the scene file makes them: what it gives no
    // time cannot have run out.
    std::vector<EarlierLock> LocksBefore();

    const DeviceProfile& Device() const { return mDevice; }
    const SceneFile& Scenes() const { return mScenes; }
    Phone& GetPhone() { return mPhone; }

    // True when the device was neither named nor shown by the log.
    bool IsDeviceGuessed() const { return mIsDeviceGuessed; }

    // True when the capture is told without its end being known.
    bool IsLive() const { return !mInput->CanRewind(); }

    // Everything wrong with the capture's lines and its story so far, by line.
    std::vector<LogProblem> Problems() const;

    // What the log cannot tell for want of a switch, and how to turn it on; empty when it has all.
    std::string DetailAdvice() const;

    // What the capture cannot tell, in sentences; empty for one that is whole.
    std::vector<std::string> Unknowns();

    // Why it is not sure that `lock` is held at the end; empty when it is.
    //   contradictedAt  the line that reads a node otherwise than the lock makes it; 0: none
    std::string DoubtOf(const BookedLock& lock, int contradictedAt) const;

    // Commands that the scene file does not have, in words; empty when it has all.
    std::string UnknownCommands() const;

  private:
    void Open(const Options& options);
    bool ReadLine();
    void Survey();
    void CheckLog() const;
    void CheckPhone();
    std::string BeforeText();
    std::string AsksText() const;
    std::string ChooseDevice(const Options& options);

    std::unique_ptr<CaptureInput> mInput;
    Capture mCapture;
    Capture mCaptureAgain;  // of a file, as it is told
    std::vector<LogProblem> mDamage;
    std::unique_ptr<LogReader> mReader;
    std::vector<CapturedLine> mBeginning;  // of a capture that is told as it comes
    std::function<void(const CapturedLine&)> mSink;
    std::function<void()> mPause;
    bool mIsPaused = false;  // the beginning has ended with a pause
    LogEvidence mEvidence;
    EarlierLocks mEarlier;
    bool mIsDeviceGuessed = false;
    DeviceProfile mDevice;
    SceneFile mScenes;
    Phone mPhone;
    Library mLibrary;
    CommandLists mLists;
    LogStory mStory;
    std::vector<LogProblem> mOwnProblems;
};

}  // namespace lab

// A scenario or a capture played up to a moment: what the questions about a run are asked of.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/book/book.h"
#include "lab/names/moments.h"
#include "lab/phone/phone.h"
#include "lab/server/inputs.h"

namespace lab {

// What every answer from a replay tells of it.
struct ReplayAnswer {
    std::string title;  // the file's name where it has none
    std::string device;
    std::string scenes;  // the file
    Moments times;
    Time at{};  // the moment that was played to
    bool isCapture = false;
    bool isWhole = true;               // false: a capture that does not tell everything
    std::vector<std::string> remarks;  // refused commands, what a capture cannot know
};

class Replay {
  public:
    // What the user says; empty where nothing is said.
    struct Options {
        std::string file;  // a scenario, the capture of a phone's log, or what ships under a name
        Instead instead;
        std::string library;
        std::string at;  // the moment, as Moments reads it; empty: the end
    };

    // Opens the file for what it is. Throws InputError for one that cannot be used and
    // std::runtime_error for a moment that is none.
    static std::unique_ptr<Replay> Open(const Options& options);

    // As Open, for a scenario that has been read.
    static std::unique_ptr<Replay> OpenScenario(const YamlNode& scenario, const Options& options);

    virtual ~Replay() = default;

    virtual bool IsCapture() const = 0;
    virtual const DeviceProfile& Device() const = 0;
    virtual const SceneFile& Scenes() const = 0;
    virtual Phone& GetPhone() = 0;

    // Nodes that there are only later.
    virtual std::vector<std::string> ArrangedNodes() const { return {}; }

    // Plays until the moment, or to the end, once. `observe` gets every event after the book.
    virtual void Play(const std::function<void(const Event&)>& observe) = 0;

    // The performance switch and the thermal level as the plug-in reports them; empty for a
    // capture.
    virtual std::map<std::string, int> Status() { return {}; }

    // Says of the replay what every answer does. After Play.
    virtual void Describe(ReplayAnswer& answer);

    // Why it is not sure that the lock is held; empty when it is.
    virtual std::string DoubtOf(const BookedLock& lock) const = 0;

    Book& GetBook() { return *mBook; }
    Time Now() { return GetPhone().GetClock().Now(); }

  protected:
    // As soon as there is a phone: the book takes the values after boot.
    void OpenBook() { mBook.emplace(Device(), Scenes(), GetPhone().GetKernel()); }

    std::optional<Time> mAt;
    std::optional<Book> mBook;
};

}  // namespace lab

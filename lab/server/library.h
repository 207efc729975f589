// The unmodified plug-in, loaded as the policy server loads it.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "tarquel/action.h"
#include "tarquel/perf_adapter.h"
#include "tarquel/plat.h"
#include "tarquel/raw_xml_data.h"

namespace lab {

// Owns the actions of one command and frees them as the server does.
struct ActionDeleter {
    void operator()(Action* first) const;
};
using ActionChain = std::unique_ptr<Action, ActionDeleter>;

// Opens the plug-in on construction. On destruction it destroys the platform object, waits for what
// timers still run in the plug-in, and closes it. The plug-in stays mapped all the same; with the
// platform gone and a configuration read anew the next Library starts afresh. What it hands out
// dies with it. Not for several threads, except where PerfAdapter is.
class Library {
  public:
    // `file` empty: the one beside the program ("../lib/libtarquel_qcom.so").
    // Throws std::runtime_error that says what could not be opened or found.
    explicit Library(const std::string& file);
    ~Library();

    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    const std::string& File() const { return mFile; }

    // Has a new loader of the plug-in translate `heads`; every command that it accepts is in the
    // result. An exception of the plug-in passes through.
    std::map<int, ActionChain> ParseScenes(std::map<int, RawXmlData*>& heads);

    // The interactive-governor action of one element; null when the plug-in refuses it.
    ActionChain ParseInteractive(RawXmlData& element);

    // Builds the platform's adapter; it stays the plug-in's. Scenes come first: the adapter takes
    // the cluster layout from them. Throws std::runtime_error when there is none afterwards.
    PerfAdapter& Initialize();

    // As Initialize, after the platform that there is has been destroyed: the plug-in starts afresh
    // but for the clusters, boost frequencies and counts that the scenes gave.
    PerfAdapter& Restart();

    // A chain of its own with the same actions, for a request that completes it.
    ActionChain Copy(const Action& first) const;

    // Writes the tunables of an interactive-governor action. Returns 0 or -1.
    int DoInterFreqAction(const Action& action, const int* payload);

    // The frequency manager's list of the clients' limits, as text.
    std::string DumpFreqList();

  private:
    template <typename Function>
    Function Find(const char* symbol) const;
    void EndPlatform();

    std::string mFile;
    void* mHandle = nullptr;
    PerfAdapter* mAdapter = nullptr;
};

}  // namespace lab

// The policy server: starts the plug-in with a scene file and sends it requests as the real server
// does.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/book/book.h"
#include "lab/phone/phone.h"
#include "lab/scenes/scene_file.h"
#include "lab/scenes/scene_problems.h"
#include "lab/server/library.h"
#include "lab/server/scenario.h"

namespace lab {

class Server {
  public:
    // What a request came to.
    struct Outcome {
        int result = 0;
        std::string text;  // the result in words, perhaps of several lines
        RequestFacts facts;
    };

    Server(Phone& phone, Library& library, SceneFile& scenes);

    // Reads the scenes and builds the adapter, in this order: the adapter takes the clusters from
    // the scenes. What the plug-in refused is in Problems(). Throws InputError when the plug-in
    // cannot read the file at all.
    void Start();

    // Ends the plug-in's adapter and builds a new one, with the scenes read by Start.
    PerfAdapter& Restart() { return *(mAdapter = &mLibrary.Restart()); }

    const std::vector<SceneProblem>& Problems() const { return mProblems; }

    // The chain that the plug-in made of the command, or null.
    const Action* FindChain(int cmdId) const;

    // The chain as the server would complete it under the thermal level in force, with the boost
    // frequencies; no boost is counted. The command is one that has a chain.
    ActionChain Boosted(int cmdId);

    // The present value of a tag, as the plug-in reads it; nothing for one that it cannot read.
    std::optional<int> Read(int tag);

    // The thermal level and the performance switch, as the plug-in reports them.
    std::map<std::string, int> Status();

    // Sends one request; each fills in the facts but for text and line.
    Outcome Send(const DoCommand& request);
    Outcome Send(const DoInteractive& request);
    Outcome Send(const SetLimits& request);
    Outcome Send(const GetValues& request);
    Outcome Send(const GetStatus& request);
    Outcome Send(const DumpLimits& request);
    Outcome Send(const SetStateBits& request);
    Outcome Send(const SetDebugSwitch& request);
    Outcome Send(const CountBoost& request);
    Outcome Send(const AskBoost& request);
    Outcome Send(const GetCeilings& request);
    Outcome Send(const SetSchedLevel& request);
    Outcome Send(const ProbeAffinity& request);
    Outcome Send(const GetChipType& request);

  private:
    std::string Complete(Action& first, const DoCommand& request);
    std::string LabelOf(int cmdId) const;
    long UptimeMs() const;
    const Action& Chain(int cmdId) const { return *mChains.at(cmdId); }

    Phone& mPhone;
    Library& mLibrary;
    SceneFile& mScenes;
    const Layout mLayout;
    std::map<int, ActionChain> mChains;
    PerfAdapter* mAdapter = nullptr;
    std::vector<SceneProblem> mProblems;
};

}  // namespace lab

// What the commands of a scene file lock, as the plug-in itself makes of them: a log names a
// command's locks but not what they hold.
#pragma once

#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "lab/phone/phone.h"
#include "lab/scenes/scene_file.h"
#include "lab/server/library.h"

namespace lab {

class CommandLists {
  public:
    // An element of a command that may run.
    struct Element {
        int index = 0;  // its place in the command's chain, from 0
        int pairs = 0;  // as the plug-in counts them in its log
        int durationMs = 0;
        int stateMask = 0;
        bool mayBreakThrough = false;  // under the thermal level asked for
        std::vector<int> list;         // what its lock holds: opcode, value, ...
    };

    // Has the plug-in read the scenes and build its adapter on `phone`, whose records of that are
    // forgotten. All three must outlive the object. Throws what Library and the loader throw.
    CommandLists(Phone& phone, Library& library, SceneFile& scenes);

    // The command's elements in their order; none when the plug-in has no such command.
    //   thermal  level 1 to 4: completed with the boost frequencies of that level; 0: as they are
    //   taskId   of the message that came with the request
    const std::vector<Element>& Elements(int cmdId, int thermal, std::optional<int> taskId);

  private:
    std::vector<Element> Make(const Action& first, int thermal, std::optional<int> taskId);

    Phone& mPhone;
    Library& mLibrary;
    std::map<int, ActionChain> mChains;
    PerfAdapter& mAdapter;
    std::map<std::tuple<int, int, std::optional<int>>, std::vector<Element>> mMade;
};

}  // namespace lab

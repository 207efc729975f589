// Which scenes of their scene files scenarios use.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "lab/server/scenario.h"

namespace lab {

class Coverage {
  public:
    // What the runs on one scene file came to.
    struct File {
        std::string scenes;
        size_t used = 0;
        std::vector<std::string> unused;  // "touch (4098)"

        size_t All() const { return used + unused.size(); }
        // 100 for a file without scenes, else rounded down: 100 means all of them.
        int Percent() const;
        // "scenes.xml: 3 of 4 scenes used (75 %); not used: touch (4098)"
        std::string Text() const;
    };

    // `steps` are played with `scenes` on `device`. Commands that describe the device are no
    // scenes; a command is used that is done, begun as an event or written as an interactive one.
    void Add(const SceneFile& scenes, const std::vector<Step>& steps, const std::string& device);

    std::vector<File> Files() const;

  private:
    struct Seen {
        std::map<int, std::string> labels;
        std::set<int> used;
    };

    std::map<std::string, Seen> mFiles;
};

}  // namespace lab

// A scene file: the XML that says what each command of the policy server does. docs/scene-files.md
// describes the form.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "lab/names/tag_names.h"
#include "lab/scenes/scene_text.h"
#include "tarquel/raw_xml_data.h"

namespace lab {

struct SceneKey {
    std::string name;
    std::string value;  // without surrounding blanks
    Place place;
};

struct SceneElement {
    std::string name;
    Place place;
    int stateMask = 0;
    bool skip = false;
    bool taskBoost = false;
    std::vector<SceneKey> keys;  // in document order
};

struct SceneCommand {
    static constexpr int kNoId = -1;  // of a mistaken command: no file in use has one

    int id = 0;
    std::string name;  // empty when it has none
    Place place;
    bool interactive = false;  // its one element names interactive-governor tunables
    int headers[3] = {-1, -1, -1};
    std::vector<SceneElement> elements;

    // "app_start (4352)", or the number alone.
    std::string Label() const;
};

class SceneFile {
  public:
    // Throws InputError with file, line and column for a file that cannot be read, is no XML, or
    // is not in the form of a scene file. What its keys and values mean is left to the plug-in.
    static SceneFile Load(const std::string& file);
    static SceneFile Parse(const std::string& text, const std::string& file);

    // As Parse, but goes on behind every mistake of form that leaves something to read, and adds it
    // to `problems`, in the order of their places. Mistaken commands are there with what could be
    // read of them: those without a usable id have kNoId, an id or a name may stand twice. A text
    // that stops being XML is read up to the command in which it does.
    static SceneFile ParseAll(const std::string& text, const std::string& file,
                              std::vector<SceneProblem>& problems);

    // A scene file of these commands.
    static SceneFile Of(std::vector<SceneCommand> commands, const std::string& file);

    const std::string& File() const { return mFile; }

    // By ascending id, the order in which the plug-in processes them.
    const std::vector<SceneCommand>& Commands() const { return mCommands; }

    const SceneCommand* Find(int id) const;
    const SceneCommand* Find(const std::string& name) const;

    // Three clusters as soon as some "qcom_cpu_info" element has a "prime_cpu_num" that is a range.
    Layout ClusterLayout() const;

    // The records as the plug-in's loader takes them: for each command that is not interactive its
    // head, whose `next` is the first element. They belong to this object; every call gives the
    // same.
    std::map<int, RawXmlData*> Heads();

    // The record of an interactive command's element. It belongs to this object.
    RawXmlData& InteractiveRecord(const SceneCommand& command) {
        return NewRecord(command, command.elements.front());
    }

  private:
    RawXmlData& NewRecord(const SceneCommand& command, const SceneElement& element);

    std::string mFile;
    std::vector<SceneCommand> mCommands;
    std::unordered_map<std::string, size_t> mNames;  // to the first command of each
    std::vector<std::unique_ptr<RawXmlData>> mRecords;
    std::map<int, RawXmlData*> mHeads;
};

}  // namespace lab

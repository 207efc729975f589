#include "lab/server/scene_file.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <pugixml.hpp>
#include <set>
#include <sstream>

#include "lab/server/text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

const std::vector<std::string> kCommandAttributes = {
    "id", "name", "header0", "header1", "header2", "state_mask", "skip", "task_boost", "governor"};
const std::vector<std::string> kElementAttributes = {"state_mask", "skip", "task_boost"};

// Reads one document; knows the place of everything in it. pugixml parses in the buffer itself, so
// that a name's address tells where it stands.
class Reader {
  public:
    Reader(const std::string& text, std::string file)
        : mText(text), mFile(std::move(file)), mBuffer(text.begin(), text.end()) {
        mBuffer.push_back('\0');
    }

    std::vector<SceneCommand> Read() {
        const pugi::xml_parse_result result = mDocument.load_buffer_inplace(
            mBuffer.data(), mText.size(), pugi::parse_default | pugi::parse_trim_pcdata,
            pugi::encoding_utf8);
        if (!result) {
            Fail(PlaceAt(static_cast<size_t>(std::max<ptrdiff_t>(result.offset, 0))),
                 std::string("this is no XML: ") + result.description());
        }
        const pugi::xml_node root = mDocument.document_element();
        if (std::strcmp(root.name(), "scenes") != 0) {
            Fail(PlaceOf(root), "the root is <" + std::string(root.name()) +
                                    ">; a scene file has one root, <scenes>");
        }
        RefuseAttributes(root, {});
        std::vector<SceneCommand> commands;
        for (const pugi::xml_node node : root.children()) {
            if (node.type() != pugi::node_element || std::strcmp(node.name(), "command") != 0) {
                Fail(PlaceOf(node), "'" + Shown(node) + "' stands where only <command> may");
            }
            commands.push_back(ReadCommand(node));
        }
        return commands;
    }

  private:
    [[noreturn]] void Fail(Place place, const std::string& message) const {
        throw InputError(mFile, place.line, place.column, message);
    }

    Place PlaceAt(size_t offset) const {
        offset = std::min(offset, mText.size());
        const auto begin = mText.begin();
        const auto end = begin + static_cast<ptrdiff_t>(offset);
        const size_t lastBreak = offset == 0 ? std::string::npos : mText.rfind('\n', offset - 1);
        const size_t lineStart = lastBreak == std::string::npos ? 0 : lastBreak + 1;
        return {static_cast<int>(std::count(begin, end, '\n')) + 1,
                static_cast<int>(offset - lineStart) + 1};
    }

    // An element's place is its '<', one before the name.
    Place PlaceOf(const pugi::xml_node& node) const {
        ptrdiff_t offset = node.offset_debug();
        if (node.type() == pugi::node_element) --offset;
        return PlaceAt(static_cast<size_t>(std::max<ptrdiff_t>(offset, 0)));
    }
    Place PlaceOf(const pugi::xml_attribute& attribute) const {
        return PlaceAt(static_cast<size_t>(attribute.name() - mBuffer.data()));
    }

    static std::string Shown(const pugi::xml_node& node) {
        return node.type() == pugi::node_element ? "<" + std::string(node.name()) + ">"
                                                 : std::string(node.value());
    }

    void RefuseAttributes(const pugi::xml_node& node, const std::vector<std::string>& allowed) {
        std::set<std::string> seen;
        for (const pugi::xml_attribute attribute : node.attributes()) {
            const std::string name = attribute.name();
            if (std::find(allowed.begin(), allowed.end(), name) == allowed.end()) {
                Fail(PlaceOf(attribute),
                     "<" + std::string(node.name()) + "> has no attribute '" + name + "'" +
                         DidYouMean(name, allowed) +
                         (allowed.empty() ? "; it takes none" : "; it takes " + Join(allowed)));
            }
            if (!seen.insert(name).second) {
                Fail(PlaceOf(attribute), "the attribute '" + name + "' is repeated; keep one");
            }
        }
    }

    int ReadInt(const pugi::xml_node& node, const char* name, int fallback, int low, int high) {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute) return fallback;
        const std::optional<int64_t> value = ParseNumber(attribute.value());
        if (!value || *value < low || *value > high) {
            Fail(PlaceOf(attribute), std::string(name) + "=\"" + attribute.value() +
                                         "\" must be a number from " + std::to_string(low) +
                                         " to " + std::to_string(high) + ", decimal or 0x...");
        }
        return static_cast<int>(*value);
    }

    SceneCommand ReadCommand(const pugi::xml_node& node) {
        SceneCommand command;
        command.place = PlaceOf(node);
        RefuseAttributes(node, kCommandAttributes);
        if (!node.attribute("id")) {
            Fail(command.place, "this <command> has no id; give it one, such as id=\"4352\"");
        }
        command.id = ReadInt(node, "id", 0, 0, INT_MAX);
        command.name = node.attribute("name").value();
        CheckUnique(command, node);
        for (int i = 0; i < 3; ++i) {
            command.headers[i] =
                ReadInt(node, ("header" + std::to_string(i)).c_str(), -1, INT_MIN, INT_MAX);
        }
        if (const pugi::xml_attribute governor = node.attribute("governor")) {
            if (std::strcmp(governor.value(), "interactive") != 0) {
                Fail(PlaceOf(governor), "governor=\"" + std::string(governor.value()) +
                                            "\": the only one is \"interactive\"");
            }
            command.interactive = true;
        }
        SceneElement common;
        ReadFlags(node, common);
        for (const pugi::xml_node child : node.children()) {
            command.elements.push_back(ReadElement(child, common));
        }
        if (command.elements.empty()) {
            Fail(command.place, "command " + command.Label() +
                                    " has no element, so nothing would ever run; add one or "
                                    "remove the command");
        }
        if (command.interactive && command.elements.size() > 1) {
            Fail(command.elements[1].place, "an interactive-governor command has one element");
        }
        return command;
    }

    void CheckUnique(const SceneCommand& command, const pugi::xml_node& node) {
        if (const auto [known, isNew] = mIds.emplace(command.id, command.place); !isNew) {
            Fail(PlaceOf(node.attribute("id")),
                 "id " + std::to_string(command.id) + " is taken by the command in line " +
                     std::to_string(known->second.line) + "; ids are unique");
        }
        if (command.name.empty()) return;
        if (ParseNumber(command.name)) {
            Fail(PlaceOf(node.attribute("name")),
                 "the name '" + command.name + "' is a number; scenarios would take it for an id");
        }
        if (const auto [known, isNew] = mNames.emplace(command.name, command.place); !isNew) {
            Fail(PlaceOf(node.attribute("name")),
                 "the name '" + command.name + "' is taken by the command in line " +
                     std::to_string(known->second.line) + "; names are unique");
        }
    }

    void ReadFlags(const pugi::xml_node& node, SceneElement& element) {
        element.stateMask = ReadInt(node, "state_mask", element.stateMask, INT_MIN, INT_MAX);
        element.skip = ReadInt(node, "skip", element.skip, 0, 1) != 0;
        element.taskBoost = ReadInt(node, "task_boost", element.taskBoost, 0, 1) != 0;
    }

    SceneElement ReadElement(const pugi::xml_node& node, const SceneElement& common) {
        if (node.type() != pugi::node_element) {
            Fail(PlaceOf(node), "'" + Shown(node) + "' stands where only elements may");
        }
        SceneElement element = common;
        element.name = node.name();
        element.place = PlaceOf(node);
        RefuseAttributes(node, kElementAttributes);
        ReadFlags(node, element);
        for (const pugi::xml_node child : node.children()) {
            if (child.type() != pugi::node_element) {
                Fail(PlaceOf(child), "'" + Shown(child) +
                                         "' stands where only keys may, such as "
                                         "<duration_ms>500</duration_ms>");
            }
            RefuseAttributes(child, {});
            SceneKey key{child.name(), "", PlaceOf(child)};
            for (const pugi::xml_node part : child.children()) {
                if (part.type() == pugi::node_element) {
                    Fail(PlaceOf(part), "the key <" + key.name +
                                            "> holds an element; a key holds its value alone");
                }
                key.value += part.value();
            }
            element.keys.push_back(std::move(key));
        }
        return element;
    }

    const std::string& mText;
    std::string mFile;
    std::vector<char> mBuffer;
    pugi::xml_document mDocument;
    std::map<int, Place> mIds;
    std::map<std::string, Place> mNames;
};

}  // namespace

std::string SceneCommand::Label() const {
    return name.empty() ? std::to_string(id) : name + " (" + std::to_string(id) + ")";
}

SceneFile SceneFile::Load(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    if (!stream || !(text << stream.rdbuf())) {
        throw InputError(file, 0, 0, "this scene file cannot be read");
    }
    return Parse(text.str(), file);
}

SceneFile SceneFile::Parse(const std::string& text, const std::string& file) {
    SceneFile scenes;
    scenes.mFile = file;
    scenes.mCommands = Reader(text, file).Read();
    std::sort(scenes.mCommands.begin(), scenes.mCommands.end(),
              [](const SceneCommand& a, const SceneCommand& b) { return a.id < b.id; });
    return scenes;
}

const SceneCommand* SceneFile::Find(int id) const {
    for (const SceneCommand& command : mCommands) {
        if (command.id == id) return &command;
    }
    return nullptr;
}

const SceneCommand* SceneFile::Find(const std::string& name) const {
    for (const SceneCommand& command : mCommands) {
        if (!name.empty() && command.name == name) return &command;
    }
    return nullptr;
}

Layout SceneFile::ClusterLayout() const {
    for (const SceneCommand& command : mCommands) {
        const SceneElement& first = command.elements.front();
        if (first.name != "qcom_cpu_info") continue;
        for (const SceneKey& key : first.keys) {
            int firstCpu = 0;
            int lastCpu = 0;
            const bool isRange = std::sscanf(key.value.c_str(), "%d-%d", &firstCpu, &lastCpu) == 2;
            if (key.name == "prime_cpu_num" && isRange) return Layout::kThreeClusters;
        }
    }
    return Layout::kTwoClusters;
}

RawXmlData& SceneFile::NewRecord(const SceneCommand& command, const SceneElement& element) {
    auto record = std::make_unique<RawXmlData>();
    record->cmdId = command.id;
    record->stateMask = element.stateMask;
    record->skip = element.skip;
    record->taskBoost = element.taskBoost;
    record->name = element.name;
    for (const SceneKey& key : element.keys) {
        record->keys.push_back(key.name);
        record->values.push_back(key.value);
    }
    mRecords.push_back(std::move(record));
    return *mRecords.back();
}

std::map<int, RawXmlData*> SceneFile::Heads() {
    std::map<int, RawXmlData*> heads;
    for (const SceneCommand& command : mCommands) {
        if (command.interactive) continue;
        auto head = std::make_unique<RawXmlData>();
        head->cmdId = command.id;
        head->headValue0 = command.headers[0];
        head->headValue1 = command.headers[1];
        head->headValue2 = command.headers[2];
        head->name = command.name;
        heads[command.id] = head.get();
        RawXmlData* last = head.get();
        mRecords.push_back(std::move(head));
        for (const SceneElement& element : command.elements) {
            last->next = &NewRecord(command, element);
            last = last->next;
        }
    }
    return heads;
}

RawXmlData& SceneFile::InteractiveRecord(const SceneCommand& command) {
    return NewRecord(command, command.elements.front());
}

}  // namespace lab

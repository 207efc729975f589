// From the text of a scene file to its commands, mistake by mistake.

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <string_view>

#include "lab/names/text.h"
#include "lab/scenes/scene_file.h"

namespace lab {
namespace {

const std::vector<std::string> kCommandAttributes = {
    "id", "name", "header0", "header1", "header2", "state_mask", "skip", "task_boost", "governor"};
constexpr std::string_view kEntities[] = {"amp", "lt", "gt", "quot", "apos"};
const std::vector<std::string> kElementAttributes = {"state_mask", "skip", "task_boost"};

// What counts of a document; the rest is there to be checked.
bool IsContent(const pugi::xml_node& node) {
    return node.type() != pugi::node_comment && node.type() != pugi::node_declaration;
}

std::string Shown(const pugi::xml_node& node) {
    return Shortened(node.type() == pugi::node_element ? "<" + std::string(node.name()) + ">"
                                                       : std::string(node.value()));
}

// True when `text` begins with a reference that every parser knows: "&amp;", "&#38;", "&#x26;".
bool IsReference(std::string_view text) {
    const size_t end = text.find(';');
    if (end == text.npos || end < 2) return false;
    const std::string_view name = text.substr(1, end - 1);
    if (name[0] != '#') {
        return std::find(std::begin(kEntities), std::end(kEntities), name) != std::end(kEntities);
    }
    const bool isHex = name.size() > 1 && name[1] == 'x';
    const std::string_view digits = name.substr(isHex ? 2 : 1);
    return !digits.empty() &&
           digits.find_first_not_of(isHex ? "0123456789abcdefABCDEF" : "0123456789") == digits.npos;
}

// Reads one document; knows the place of everything in it. pugixml parses in the buffer itself, so
// that a name's address tells where it stands.
class Reader {
  public:
    explicit Reader(const std::string& text)
        : mText(text), mLines(text), mBuffer(text.begin(), text.end()) {
        mBuffer.push_back('\0');
    }

    std::vector<SceneCommand> Read(std::vector<SceneProblem>& problems) {
        mProblems = FindTextProblems(mText, mLines);
        // Behind a null character the parser sees nothing, and would call the rest fine.
        const bool isText = mText.find('\0') == std::string::npos;
        if (!isText) ReportXml(Place{1, 1}, "it holds null characters");
        if (isText) ReadDocument();
        std::stable_sort(
            mProblems.begin(), mProblems.end(),
            [](const SceneProblem& a, const SceneProblem& b) { return a.place < b.place; });
        problems.insert(problems.end(), mProblems.begin(), mProblems.end());
        return std::move(mCommands);
    }

  private:
    void Report(Place place, const std::string& message, const char* rule = "form") {
        mProblems.push_back({place, message, rule});
    }
    template <typename Where>
    void Report(const Where& where, const std::string& message, const char* rule = "form") {
        Report(PlaceOf(where), message, rule);
    }
    template <typename Where>
    void ReportXml(const Where& where, const std::string& message) {
        Report(where, "this is no XML: " + message, "xml");
    }

    // An element's place is its '<', one before the name.
    Place PlaceOf(const pugi::xml_node& node) const {
        ptrdiff_t offset = node.offset_debug();
        if (node.type() == pugi::node_element) --offset;
        return mLines.At(static_cast<size_t>(std::max<ptrdiff_t>(offset, 0)));
    }
    Place PlaceOf(const pugi::xml_attribute& attribute) const {
        return mLines.At(static_cast<size_t>(attribute.name() - mBuffer.data()));
    }

    void ReadDocument() {
        // Fragments and comments are taken in so that what XML forbids of them is seen.
        const pugi::xml_parse_result result = mDocument.load_buffer_inplace(
            mBuffer.data(), mBuffer.size(),
            pugi::parse_default | pugi::parse_trim_pcdata | pugi::parse_fragment |
                pugi::parse_comments | pugi::parse_declaration,
            pugi::encoding_utf8);
        if (!result) {
            ReportXml(mLines.At(static_cast<size_t>(std::max<ptrdiff_t>(result.offset, 0))),
                      std::string(result.description()) + "; what follows was not read");
        }
        CheckComments();
        const pugi::xml_node root = FindRoot(static_cast<bool>(result));
        if (!root) return;
        for (const pugi::xml_node node : root.children()) {
            if (!IsContent(node)) continue;
            // What the fault of an XML document cut off tells nothing about its author's meaning.
            if (!result && node == root.last_child()) break;
            if (node.type() != pugi::node_element || std::strcmp(node.name(), "command") != 0) {
                Report(node, "'" + Shown(node) + "' stands where only <command> may");
                continue;
            }
            ReadCommand(node);
        }
    }

    pugi::xml_node FindRoot(bool isWhole) {
        pugi::xml_node root;
        for (const pugi::xml_node node : mDocument.children()) {
            if (node.type() == pugi::node_declaration) CheckDeclaration(node);
            if (!IsContent(node)) continue;
            if (node.type() != pugi::node_element) {
                ReportXml(node, "'" + Shown(node) + "' stands outside the root");
            } else if (root) {
                ReportXml(node, "a second root, " + Shown(node));
            } else {
                root = node;
            }
        }
        if (!root) {
            if (isWhole) ReportXml(Place{1, 1}, "there is no element");
            return root;
        }
        if (std::strcmp(root.name(), "scenes") != 0) {
            Report(root, "the root is " + Shown(root) + "; a scene file has one root, <scenes>");
        }
        CheckAttributes(root, {});
        return root;
    }

    void CheckDeclaration(const pugi::xml_node& declaration) {
        const auto start = static_cast<size_t>(declaration.offset_debug()) - std::strlen("<?");
        if (start != 0 && mText.compare(0, start, kUtf8Mark) != 0) {
            ReportXml(mLines.At(start),
                      "the declaration stands behind something else; make it the very first thing "
                      "of the file");
        }
        const pugi::xml_attribute encoding = declaration.attribute("encoding");
        const char* const name = encoding.value();
        const bool isAscii =
            std::none_of(mText.begin(), mText.end(), [](char byte) { return (byte & 0x80) != 0; });
        const bool isOther =
            *name != '\0' && strcasecmp(name, "utf-8") != 0 && strcasecmp(name, "us-ascii") != 0;
        if (!isOther || (isAscii && strncasecmp(name, "utf-", std::strlen("utf-")) != 0)) return;
        Report(encoding,
               "the encoding is said to be " + std::string(encoding.value()) +
                   ", but the file is read as UTF-8; save it as UTF-8 and say so",
               "encoding");
    }

    void CheckComments() {
        for (const pugi::xpath_node& found : mDocument.select_nodes("//comment()")) {
            if (!std::strstr(found.node().value(), "--")) continue;
            Report(found.node(), "this comment holds '--', which XML forbids", "xml");
        }
    }

    // The parser takes these as they stand; others refuse the file for them.
    void CheckAttributeText(const pugi::xml_attribute& attribute) {
        if (*attribute.value() == '\0') return;
        const auto start = static_cast<size_t>(attribute.value() - mBuffer.data());
        const std::string_view text(mText);
        const std::string_view value =
            text.substr(start, text.find(text[start - 1], start) - start);
        for (size_t at = value.find_first_of("<&"); at != value.npos;
             at = value.find_first_of("<&", at + 1)) {
            if (value[at] == '&' && IsReference(value.substr(at))) continue;
            ReportXml(mLines.At(start + at), value[at] == '<'
                                                 ? "'<' stands in an attribute; write '&lt;'"
                                                 : "'&' stands in an attribute; write '&amp;'");
        }
    }

    void CheckAttributes(const pugi::xml_node& node, const std::vector<std::string>& allowed) {
        std::set<std::string> seen;
        for (const pugi::xml_attribute attribute : node.attributes()) {
            CheckAttributeText(attribute);
            const std::string name = attribute.name();
            if (std::find(allowed.begin(), allowed.end(), name) == allowed.end()) {
                Report(attribute, fmt::format("<{}> has no attribute '{}'{}; it takes {}",
                                              node.name(), name, DidYouMean(name, allowed),
                                              allowed.empty() ? "none" : Join(allowed)));
            }
            if (!seen.insert(name).second) {
                Report(attribute, "the attribute '" + name + "' is repeated; keep one");
            }
        }
    }

    int ReadInt(const pugi::xml_node& node, const char* name, int fallback, int low, int high) {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute) return fallback;
        const std::optional<int64_t> value = ParseNumber(attribute.value());
        if (!value || *value < low || *value > high) {
            Report(attribute,
                   fmt::format("{}=\"{}\" must be a number from {} to {}, decimal or 0x...", name,
                               attribute.value(), low, high));
            return fallback;
        }
        return static_cast<int>(*value);
    }

    void ReadCommand(const pugi::xml_node& node) {
        SceneCommand command;
        command.place = PlaceOf(node);
        CheckAttributes(node, kCommandAttributes);
        if (!node.attribute("id")) {
            Report(command.place, "this <command> has no id; give it one, such as id=\"4352\"");
        }
        command.id = ReadInt(node, "id", SceneCommand::kNoId, 0, INT_MAX);
        command.name = node.attribute("name").value();
        CheckUnique(command, node);
        for (int i = 0; i < 3; ++i) {
            command.headers[i] =
                ReadInt(node, ("header" + std::to_string(i)).c_str(), -1, INT_MIN, INT_MAX);
        }
        if (const pugi::xml_attribute governor = node.attribute("governor")) {
            command.interactive = std::strcmp(governor.value(), "interactive") == 0;
            if (!command.interactive) {
                Report(governor, fmt::format("governor=\"{}\": the only one is \"interactive\"",
                                             governor.value()));
            }
        }
        SceneElement common;
        ReadFlags(node, common);
        for (const pugi::xml_node child : node.children()) {
            if (IsContent(child)) ReadElement(child, common, command);
        }
        if (command.interactive && command.elements.size() > 1) {
            Report(command.elements[1].place, "an interactive-governor command has one element");
        }
        if (command.elements.empty()) {
            Report(command.place, "command " + command.Label() +
                                      " has no element, so nothing would ever run; add one or "
                                      "remove the command");
            return;
        }
        mCommands.push_back(std::move(command));
    }

    void CheckUnique(const SceneCommand& command, const pugi::xml_node& node) {
        const auto report = [&](const char* attribute, const std::string& message) {
            Report(node.attribute(attribute), message);
        };
        if (command.id != SceneCommand::kNoId) {
            if (const auto [known, isNew] = mIds.emplace(command.id, command.place); !isNew) {
                report("id", fmt::format("id {} is taken by the command in line {}; ids are unique",
                                         command.id, known->second.line));
            }
        }
        if (command.name.empty()) return;
        if (ParseNumber(command.name)) {
            report("name", fmt::format("the name '{}' is a number; scenarios would take it for an "
                                       "id",
                                       command.name));
        }
        if (const auto [known, isNew] = mNames.emplace(command.name, command.place); !isNew) {
            report("name", fmt::format("the name '{}' is taken by the command in line {}; names "
                                       "are unique",
                                       command.name, known->second.line));
        }
    }

    void ReadFlags(const pugi::xml_node& node, SceneElement& element) {
        element.stateMask = ReadInt(node, "state_mask", element.stateMask, INT_MIN, INT_MAX);
        element.skip = ReadInt(node, "skip", element.skip, 0, 1) != 0;
        element.taskBoost = ReadInt(node, "task_boost", element.taskBoost, 0, 1) != 0;
    }

    void ReadElement(const pugi::xml_node& node, const SceneElement& common,
                     SceneCommand& command) {
        if (node.type() != pugi::node_element) {
            Report(node, "'" + Shown(node) + "' stands where only elements may");
            return;
        }
        SceneElement element = common;
        element.name = node.name();
        element.place = PlaceOf(node);
        CheckAttributes(node, kElementAttributes);
        ReadFlags(node, element);
        for (const pugi::xml_node child : node.children()) {
            if (IsContent(child)) ReadKey(child, element);
        }
        command.elements.push_back(std::move(element));
    }

    void ReadKey(const pugi::xml_node& node, SceneElement& element) {
        if (node.type() != pugi::node_element) {
            Report(node, "'" + Shown(node) +
                             "' stands where only keys may, such as "
                             "<duration_ms>500</duration_ms>");
            return;
        }
        CheckAttributes(node, {});
        SceneKey key{node.name(), "", PlaceOf(node)};
        bool holdsValue = true;
        for (const pugi::xml_node part : node.children()) {
            if (!IsContent(part)) continue;
            if (part.type() == pugi::node_element) {
                Report(part,
                       "the key <" + key.name + "> holds an element; a key holds its value alone");
                holdsValue = false;
            }
            key.value += part.value();
        }
        if (holdsValue) element.keys.push_back(std::move(key));
    }

    const std::string& mText;
    const LineTable mLines;
    std::vector<char> mBuffer;
    pugi::xml_document mDocument;
    std::vector<SceneCommand> mCommands;
    std::vector<SceneProblem> mProblems;
    std::map<int, Place> mIds;
    std::map<std::string, Place> mNames;
};

}  // namespace

SceneFile SceneFile::ParseAll(const std::string& text, const std::string& file,
                              std::vector<SceneProblem>& problems) {
    return Of(Reader(text).Read(problems), file);
}

}  // namespace lab

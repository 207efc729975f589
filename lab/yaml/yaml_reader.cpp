// From a text to a tree, by way of libyaml's events.
#include <yaml.h>

#include <optional>
#include <string_view>

#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

namespace {

// No file of the lab nests deeper, and a tree frees itself by recursion.
constexpr size_t kDeepest = 500;

// Frees what libyaml allocated within its records.
using OwnedParser = std::unique_ptr<yaml_parser_t, void (*)(yaml_parser_t*)>;
using OwnedEvent = std::unique_ptr<yaml_event_t, void (*)(yaml_event_t*)>;

// libyaml counts lines and columns from 0.
class Builder {
  public:
    Builder(const std::string& text, const std::string& file)
        : mText(text), mFile(std::make_shared<const std::string>(file)) {}

    YamlNode Build() {
        mRoot = Make(YamlNode::Kind::kNull, {});
        yaml_parser_t parser{};
        yaml_parser_initialize(&parser);
        const OwnedParser ownedParser(&parser, yaml_parser_delete);
        yaml_parser_set_input_string(&parser, reinterpret_cast<const unsigned char*>(mText.data()),
                                     mText.size());
        for (bool isOver = false; !isOver;) {
            yaml_event_t event{};
            if (!yaml_parser_parse(&parser, &event)) FailAsParser(parser);
            const OwnedEvent ownedEvent(&event, yaml_event_delete);
            isOver = event.type == YAML_STREAM_END_EVENT;
            Take(event);
        }
        return std::move(mRoot);
    }

  private:
    // A list or map that has not ended; a map's key waits for its value.
    struct Open {
        YamlNode node;
        std::optional<YamlNode> key;
    };

    void Take(const yaml_event_t& event) {
        using Kind = YamlNode::Kind;
        switch (event.type) {
            case YAML_DOCUMENT_START_EVENT:
                if (mHasDocument)
                    Fail(event.start_mark, "a second document begins; keep one in a file");
                mHasDocument = true;
                break;
            case YAML_ALIAS_EVENT:
                RefuseAnchor(event, event.data.alias.anchor);
                break;
            case YAML_SCALAR_EVENT:
                RefuseAnchor(event, event.data.scalar.anchor);
                Add(Scalar(event));
                break;
            case YAML_SEQUENCE_START_EVENT:
                Begin(Kind::kList, event, event.data.sequence_start.anchor);
                break;
            case YAML_MAPPING_START_EVENT:
                Begin(Kind::kMap, event, event.data.mapping_start.anchor);
                break;
            case YAML_SEQUENCE_END_EVENT:
            case YAML_MAPPING_END_EVENT: {
                YamlNode done = std::move(mOpen.back().node);
                mOpen.pop_back();
                Add(std::move(done));
                break;
            }
            default:
                break;
        }
    }

    [[noreturn]] void Fail(const yaml_mark_t& mark, const std::string& message) const {
        throw InputError(*mFile, static_cast<int>(mark.line) + 1, static_cast<int>(mark.column) + 1,
                         message);
    }

    // Says what the parser stumbled over. It reads bytes ahead of what it has understood, and
    // gives those that are no text as an offset.
    [[noreturn]] void FailAsParser(const yaml_parser_t& parser) const {
        if (parser.error == YAML_READER_ERROR) {
            yaml_mark_t mark{};
            for (const char letter : std::string_view(mText).substr(0, parser.problem_offset)) {
                const bool isContinuation = (letter & 0xC0) == 0x80;
                if (!isContinuation) ++mark.column;
                if (letter != '\n') continue;
                ++mark.line;
                mark.column = 0;
            }
            Fail(mark, std::string(parser.problem) + "; YAML is text in UTF-8");
        }
        const yaml_mark_t& mark = parser.problem_mark;
        if (IsIndentedByTab(mark.line)) {
            Fail(mark, "a tab indents this line; YAML takes blanks alone");
        }
        std::string message = parser.problem ? parser.problem : "this is no YAML";
        if (parser.context) {
            message += std::string(" ") + parser.context;
            const size_t line = parser.context_mark.line;
            if (line != mark.line) message += " that begins in line " + std::to_string(line + 1);
        }
        Fail(mark, message);
    }

    bool IsIndentedByTab(size_t line) const {
        size_t start = 0;
        for (; line > 0; --line) start = mText.find('\n', start) + 1;
        const size_t end = mText.find_first_not_of(" \t", start);
        return mText.substr(start, end - start).find('\t') != std::string::npos;
    }

    void RefuseAnchor(const yaml_event_t& event, const unsigned char* anchor) const {
        if (!anchor) return;
        Fail(event.start_mark, "anchors and aliases are not used here; write it out");
    }

    YamlNode Make(YamlNode::Kind kind, const yaml_mark_t& mark) const {
        YamlNode node;
        node.kind = kind;
        node.file = mFile;
        node.line = static_cast<int>(mark.line) + 1;
        node.column = static_cast<int>(mark.column) + 1;
        return node;
    }

    YamlNode Scalar(const yaml_event_t& event) const {
        const auto& scalar = event.data.scalar;
        std::string text(reinterpret_cast<const char*>(scalar.value), scalar.length);
        const bool isPlain = scalar.style == YAML_PLAIN_SCALAR_STYLE;
        const bool isNull = isPlain && (text.empty() || text == "~" || text == "null" ||
                                        text == "Null" || text == "NULL");
        YamlNode node =
            Make(isNull ? YamlNode::Kind::kNull : YamlNode::Kind::kScalar, event.start_mark);
        if (!isNull) node.scalar = std::move(text);
        return node;
    }

    void Begin(YamlNode::Kind kind, const yaml_event_t& event, const unsigned char* anchor) {
        RefuseAnchor(event, anchor);
        if (mOpen.size() == kDeepest) Fail(event.start_mark, "this is nested too deep");
        mOpen.push_back({Make(kind, event.start_mark), std::nullopt});
    }

    void Add(YamlNode node) {
        // What is missing is looked for at its field.
        if (node.kind == YamlNode::Kind::kNull && !mOpen.empty() && mOpen.back().key) {
            node.line = mOpen.back().key->line;
            node.column = mOpen.back().key->column;
        }
        if (mOpen.empty()) {
            mRoot = std::move(node);
            return;
        }
        Open& parent = mOpen.back();
        if (parent.node.kind == YamlNode::Kind::kList) {
            parent.node.items.push_back(std::move(node));
        } else if (parent.key) {
            parent.node.fields.push_back({std::move(*parent.key), std::move(node)});
            parent.key.reset();
        } else {
            TakeKey(parent, std::move(node));
        }
    }

    static void TakeKey(Open& map, YamlNode key) {
        if (key.kind != YamlNode::Kind::kScalar) key.Fail("a field's name must be plain text");
        for (const auto& [name, value] : map.node.fields) {
            if (name.scalar != key.scalar) continue;
            key.Fail("the field '" + key.scalar +
                     "' stands here a second time; the first is in line " +
                     std::to_string(name.line));
        }
        map.key = std::move(key);
    }

    const std::string& mText;
    const std::shared_ptr<const std::string> mFile;
    YamlNode mRoot;
    std::vector<Open> mOpen;
    bool mHasDocument = false;
};

}  // namespace

YamlNode LoadYamlText(const std::string& text, const std::string& file) {
    return Builder(text, file).Build();
}

YamlNode LoadYamlFile(const std::string& file) {
    return LoadYamlText(ReadInput(file), file);
}

}  // namespace lab

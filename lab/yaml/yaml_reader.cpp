// From the bridge's events to a tree.
#include <cerrno>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

#include "lab/yaml/yaml_cpp_bridge.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

namespace {

class Builder {
  public:
    explicit Builder(const std::string& file) : mFile(file) {}

    // The finished document, or the first error.
    YamlNode Take() {
        if (mError) throw *mError;
        if (mDocuments == 0) {
            mRoot.file = mFile;
            mRoot.line = 1;
            mRoot.column = 1;
        }
        return std::move(mRoot);
    }

    void Document(int line, int column) {
        if (++mDocuments == 2) Fail(line, column, "a second document begins; keep one in a file");
    }

    void Begin(YamlNode::Kind kind, int line, int column) {
        if (mError) return;
        mOpen.push_back({Make(kind, line, column), std::nullopt});
    }

    void End() {
        if (mError) return;
        YamlNode done = std::move(mOpen.back().node);
        mOpen.pop_back();
        Add(std::move(done));
    }

    void Leaf(YamlNode::Kind kind, int line, int column, std::string text) {
        if (mError) return;
        YamlNode leaf = Make(kind, line, column);
        // Nothing stands where the next thing begins, which may be lines below its field.
        if (kind == YamlNode::Kind::kNull && !mOpen.empty() && mOpen.back().key) {
            leaf.line = mOpen.back().key->line;
            leaf.column = mOpen.back().key->column;
        }
        leaf.scalar = std::move(text);
        Add(std::move(leaf));
    }

    void Fail(int line, int column, const std::string& message) {
        if (!mError) mError.emplace(mFile, line, column, message);
    }

  private:
    // A list or map that has not ended; a map's key waits for its value.
    struct Open {
        YamlNode node;
        std::optional<YamlNode> key;
    };

    YamlNode Make(YamlNode::Kind kind, int line, int column) const {
        YamlNode node;
        node.kind = kind;
        node.file = mFile;
        node.line = line;
        node.column = column;
        return node;
    }

    void Add(YamlNode node) {
        if (mOpen.empty()) {
            mRoot = std::move(node);
            return;
        }
        Open& parent = mOpen.back();
        if (parent.node.kind == YamlNode::Kind::kList) {
            parent.node.items.push_back(std::move(node));
        } else if (parent.key) {
            parent.node.fields.emplace_back(std::move(*parent.key), std::move(node));
            parent.key.reset();
        } else {
            TakeKey(parent, std::move(node));
        }
    }

    void TakeKey(Open& map, YamlNode key) {
        if (key.kind != YamlNode::Kind::kScalar) {
            Fail(key.line, key.column, "a field's name must be plain text");
        }
        for (const auto& [name, value] : map.node.fields) {
            if (name.scalar != key.scalar) continue;
            Fail(key.line, key.column,
                 "the field '" + key.scalar + "' stands here a second time; the first is in line " +
                     std::to_string(name.line));
        }
        map.key = std::move(key);
    }

    const std::string mFile;
    YamlNode mRoot;
    std::vector<Open> mOpen;
    std::optional<InputError> mError;
    int mDocuments = 0;
};

Builder& From(void* context) {
    return *static_cast<Builder*>(context);
}

LabYamlSink SinkOf(Builder& builder) {
    using Kind = YamlNode::Kind;
    LabYamlSink sink{};
    sink.context = &builder;
    sink.document = [](void* to, int line, int column) { From(to).Document(line, column); };
    sink.null = [](void* to, int line, int column) {
        From(to).Leaf(Kind::kNull, line, column, "");
    };
    sink.scalar = [](void* to, int line, int column, const char* text, size_t length) {
        From(to).Leaf(Kind::kScalar, line, column, std::string(text, length));
    };
    sink.listBegin = [](void* to, int line, int column) {
        From(to).Begin(Kind::kList, line, column);
    };
    sink.listEnd = [](void* to) { From(to).End(); };
    sink.mapBegin = [](void* to, int line, int column) {
        From(to).Begin(Kind::kMap, line, column);
    };
    sink.mapEnd = [](void* to) { From(to).End(); };
    sink.fail = [](void* to, int line, int column, const char* message) {
        From(to).Fail(line, column, message);
    };
    return sink;
}

}  // namespace

YamlNode LoadYamlText(const std::string& text, const std::string& file) {
    Builder builder(file);
    const LabYamlSink sink = SinkOf(builder);
    LabYamlParse(text.data(), text.size(), &sink);
    return builder.Take();
}

YamlNode LoadYamlFile(const std::string& file) {
    errno = 0;
    std::ifstream input(file, std::ios::binary);
    std::ostringstream text;
    // A folder opens and fails at the first read only. An empty file sets failbit, which is fine.
    if (input.is_open()) text << input.rdbuf();
    if (!input.is_open() || text.bad() || errno == EISDIR) {
        throw InputError(file, 0, 0, "cannot be read: " + std::generic_category().message(errno));
    }
    return LoadYamlText(text.str(), file);
}

}  // namespace lab

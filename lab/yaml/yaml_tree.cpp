#include "lab/yaml/yaml_tree.h"

#include <algorithm>

#include "lab/names/text.h"

namespace lab {

namespace {

std::string Place(const std::string& file, int line, int column) {
    if (line == 0) return file;
    return file + ":" + std::to_string(line) + ":" + std::to_string(column);
}

// How a message calls what stands in the file.
std::string Shown(const YamlNode& node) {
    if (node.kind == YamlNode::Kind::kScalar) return "'" + node.scalar + "'";
    if (node.kind == YamlNode::Kind::kList) return "a list";
    return node.kind == YamlNode::Kind::kMap ? "a map" : "nothing";
}

}  // namespace

InputError::InputError(const std::string& inFile, int atLine, int atColumn,
                       const std::string& message)
    : std::runtime_error(Place(inFile, atLine, atColumn) + ": " + message),
      file(inFile),
      line(atLine),
      column(atColumn) {}

const std::string& YamlNode::File() const {
    static const std::string none;
    return file ? *file : none;
}

const YamlNode* YamlNode::Find(const std::string& key) const {
    for (const auto& [name, value] : fields) {
        if (name.scalar == key) return &value;
    }
    return nullptr;
}

const YamlNode& YamlNode::Get(const std::string& key) const {
    if (const YamlNode* found = Find(key)) return *found;
    Fail(kind == Kind::kMap ? "the field '" + key + "' is missing"
                            : "expected a map with the field '" + key + "', not " + Shown(*this));
}

const std::string& YamlNode::AsText(const std::string& what) const {
    if (kind != Kind::kScalar) Fail(what + " must be text, not " + Shown(*this));
    return scalar;
}

int64_t YamlNode::AsInt(const std::string& what, int64_t low, int64_t high) const {
    const std::optional<int64_t> value = ParseNumber(scalar);
    if (value && *value >= low && *value <= high) return *value;
    Fail(what + " must be a whole number from " + std::to_string(low) + " to " +
         std::to_string(high) + ", not " + Shown(*this));
}

bool YamlNode::AsBool(const std::string& what) const {
    if (scalar == "true" || scalar == "yes" || scalar == "on") return true;
    if (scalar == "false" || scalar == "no" || scalar == "off") return false;
    Fail(what + " must be true or false, not " + Shown(*this));
}

const std::vector<YamlNode>& YamlNode::AsList(const std::string& what) const {
    if (kind != Kind::kList) Fail(what + " must be a list, not " + Shown(*this));
    return items;
}

const std::vector<YamlNode::Field>& YamlNode::AsFilledMap(const std::string& expected) const {
    if (kind != Kind::kMap || fields.empty()) Fail("expected " + expected);
    return fields;
}

std::span<const YamlNode> YamlNode::OneOrMore() const {
    return kind == Kind::kList ? std::span(items) : std::span(this, 1);
}

void YamlNode::ExpectFields(const std::string& what,
                            const std::vector<std::string>& allowed) const {
    const std::string list = Join(allowed);
    if (kind != Kind::kMap) {
        Fail(what + " must be a map with fields from: " + list + "; not " + Shown(*this));
    }
    for (const Field& field : fields) {
        const std::string& name = field.key.scalar;
        if (std::find(allowed.begin(), allowed.end(), name) != allowed.end()) continue;
        field.key.Fail(what + " has no field '" + name + "'; the fields are: " + list);
    }
}

void YamlNode::Fail(const std::string& message) const {
    throw InputError(File(), line, column, message);
}

}  // namespace lab

#include "lab/server/scenario_writer.h"

#include <fmt/format.h>

#include "lab/names/text.h"
#include "lab/server/scenario.h"

namespace lab {
namespace {

constexpr size_t kMostSteps = 1'000'000;

constexpr char kPlainLetters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_/.-";

// A scalar that YAML takes for a text as it stands; all others are quoted.
bool IsPlain(const std::string& text) {
    if (text.empty() || text == "null" || text == "Null" || text == "NULL") return false;
    if (text[0] == '-' && text.size() > 1 && text[1] == '-') return false;
    if (text.find_first_not_of(kPlainLetters) != std::string::npos) return false;
    return text != "-" && text != "." && text != "..." && text != "---";
}

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (char letter : text) {
        if (letter == '"' || letter == '\\') {
            quoted += '\\';
            quoted += letter;
        } else if (static_cast<unsigned char>(letter) < ' ' || letter == '\x7F') {
            quoted += fmt::format("\\x{:02x}", static_cast<unsigned>(letter));
        } else {
            quoted += letter;
        }
    }
    return quoted + "\"";
}

std::string FlowText(const YamlNode& node) {
    if (node.kind == YamlNode::Kind::kNull) return "null";
    if (node.kind == YamlNode::Kind::kScalar) {
        return IsPlain(node.scalar) ? node.scalar : Quoted(node.scalar);
    }
    const bool isList = node.kind == YamlNode::Kind::kList;
    std::vector<std::string> parts;
    for (const YamlNode& item : node.items) parts.push_back(FlowText(item));
    for (const auto& [key, value] : node.fields) {
        parts.push_back(FlowText(key) + ": " + FlowText(value));
    }
    return isList ? "[" + Join(parts) + "]" : "{" + Join(parts) + "}";
}

// Lays out steps one after the other.
class Flattener {
  public:
    std::vector<YamlNode> TakeSteps() {
        if (mNowMs > mLastStepMs) {
            mSteps.push_back(MakeMap({{"wait", MakeScalar(mNowMs - mLastStepMs)}}));
        }
        return std::move(mSteps);
    }

    void AddList(const YamlNode& list) {
        for (const YamlNode& step : list.AsList("a list of steps")) AddStep(step);
    }

  private:
    void AddStep(const YamlNode& step) {
        if (const YamlNode* at = step.Find("at")) {
            mNowMs = at->AsInt("ms since the start", 0, kLongestMs);
        } else if (const YamlNode* after = step.Find("after")) {
            mNowMs += after->AsInt("ms since the step before", 0, kLongestMs);
        }
        if (const YamlNode* wait = step.Find("wait")) {
            mNowMs += wait->AsInt("ms", 0, kLongestMs);
            return;
        }
        if (const YamlNode* repeat = step.Find("repeat")) {
            const int64_t rounds = repeat->AsInt("how often", 0, kMostRounds);
            const YamlNode& inner = step.Get("steps");
            if (inner.items.empty()) return;
            for (int64_t round = 0; round < rounds; ++round) AddList(inner);
            return;
        }
        if (mSteps.size() == kMostSteps) {
            step.Fail(fmt::format("there are more than {} steps by here; that is no file any more",
                                  kMostSteps));
        }
        YamlNode bare = step;
        std::erase_if(bare.fields, [](const auto& field) {
            return field.key.scalar == "at" || field.key.scalar == "after";
        });
        mSteps.push_back(AtTime(mNowMs, bare));
        mLastStepMs = mNowMs;
    }

    std::vector<YamlNode> mSteps;
    int64_t mNowMs = 0;
    int64_t mLastStepMs = 0;
};

}  // namespace

YamlNode MakeScalar(const std::string& text) {
    YamlNode node;
    node.kind = YamlNode::Kind::kScalar;
    node.scalar = text;
    return node;
}

YamlNode MakeScalar(int64_t number) {
    return MakeScalar(std::to_string(number));
}

YamlNode MakeList(std::vector<YamlNode> items) {
    YamlNode node;
    node.kind = YamlNode::Kind::kList;
    node.items = std::move(items);
    return node;
}

YamlNode MakeMap(std::vector<std::pair<std::string, YamlNode>> fields) {
    YamlNode node;
    node.kind = YamlNode::Kind::kMap;
    for (auto& [key, value] : fields) node.fields.push_back({MakeScalar(key), std::move(value)});
    return node;
}

YamlNode AtTime(int64_t ms, const YamlNode& step) {
    YamlNode timed = MakeMap({{"at", MakeScalar(ms)}});
    timed.line = step.line;
    timed.fields.insert(timed.fields.end(), step.fields.begin(), step.fields.end());
    return timed;
}

YamlNode Flattened(const YamlNode& root) {
    YamlNode flat = root;
    for (auto& [key, value] : flat.fields) {
        if (key.scalar != "steps") continue;
        Flattener flattener;
        flattener.AddList(value);
        value = MakeList(flattener.TakeSteps());
    }
    return flat;
}

void WriteScenario(std::ostream& out, const YamlNode& root, const std::vector<std::string>& head) {
    for (const std::string& line : head) out << (line.empty() ? "#" : "# " + line) << "\n";
    if (!head.empty()) out << "\n";
    for (const auto& [key, value] : root.fields) {
        if (key.scalar != "steps") {
            out << FlowText(key) << ": " << FlowText(value) << "\n";
            continue;
        }
        if (value.items.empty()) {
            out << "steps: []\n";
            continue;
        }
        out << "steps:\n";
        for (const YamlNode& step : value.items) out << "  - " << FlowText(step) << "\n";
    }
}

}  // namespace lab

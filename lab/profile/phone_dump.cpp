#include "lab/profile/phone_dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "lab/names/text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

constexpr char kFirstLine[] = "tarquel-lab dump 1";
constexpr size_t kLongestLine = 64 * 1024;

bool IsPath(const std::string& text) {
    return text.starts_with("/sys/") || text.starts_with("/proc/") || text.starts_with("/dev/");
}

class DumpReader {
  public:
    explicit DumpReader(PhoneDump& dump) : mDump(dump) {}

    // False for a text that is no dump.
    bool Read(std::istream& in) {
        for (std::string line; std::getline(in, line);) {
            ++mLine;
            // A dump that breaks off may do so within a number.
            if (in.eof() && !line.starts_with("end ")) break;
            while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
            Take(line);
        }
        if (!mHasBegun) return false;
        if (!mExpected) {
            mDump.problems.push_back(fmt::format(
                "{}: the dump breaks off behind line {}: its end is missing", mDump.file, mLine));
        } else if (*mExpected != mCount) {
            mDump.problems.push_back(
                fmt::format("{}: the phone printed {} lines, of which {} are here", mDump.file,
                            *mExpected, mCount));
        }
        return true;
    }

  private:
    void Take(const std::string& line) {
        if (line == kFirstLine) {
            // A second run: the later one counts.
            mHasBegun = true;
            mExpected.reset();
            mCount = 0;
            return;
        }
        if (!mHasBegun || mExpected || line.empty()) return;
        const size_t space = line.find(' ');
        const std::string word = line.substr(0, space);
        const std::string rest = space == line.npos ? "" : line.substr(space + 1);
        const size_t end = rest.find(' ');
        const std::string name = rest.substr(0, end);
        const std::string value = end == rest.npos ? "" : rest.substr(end + 1);
        if (word == "end") {
            mExpected = ParseNumber(rest);
            if (!mExpected) Tell(line);
            return;
        }
        if (word == "kernel") {
            mDump.kernel = rest;
        } else if (word == "prop" && !value.empty()) {
            mDump.properties[name] = value;
        } else if (word == "read" && IsPath(name) && line.size() < kLongestLine) {
            Add(name, {PhoneDump::State::kRead, value, mLine});
        } else if (word == "missing" && IsPath(name)) {
            Add(name, {PhoneDump::State::kMissing, "", mLine});
        } else if (word == "unreadable" && IsPath(name)) {
            Add(name, {PhoneDump::State::kUnreadable, "", mLine});
        } else {
            Tell(line);
            return;
        }
        ++mCount;
    }

    // A node may be printed twice, as one of a folder and as one of a table.
    void Add(const std::string& path, PhoneDump::Node node) {
        PhoneDump::Node& entry = mDump.nodes[path];
        if (entry.line == 0 || node.state == PhoneDump::State::kRead) entry = std::move(node);
    }

    void Tell(const std::string& line) {
        std::string shown = Shortened(line);
        std::replace_if(
            shown.begin(), shown.end(), [](char letter) { return letter < ' ' || letter > '~'; },
            '?');
        mDump.problems.push_back(fmt::format(
            "{}:{}: this is no line of a dump, and is passed over: {}", mDump.file, mLine, shown));
    }

    PhoneDump& mDump;
    int mLine = 0;
    bool mHasBegun = false;
    int64_t mCount = 0;
    std::optional<int64_t> mExpected;
};

}  // namespace

PhoneDump::State PhoneDump::StateOf(const std::string& path) const {
    const auto node = nodes.find(path);
    return node == nodes.end() ? State::kUntold : node->second.state;
}

std::optional<std::string> PhoneDump::Value(const std::string& path) const {
    if (StateOf(path) != State::kRead) return std::nullopt;
    return nodes.at(path).value;
}

std::optional<std::vector<int64_t>> PhoneDump::Numbers(const std::string& path) const {
    const std::optional<std::string> value = Value(path);
    if (!value) return std::nullopt;
    std::vector<int64_t> numbers;
    std::istringstream words(*value);
    for (std::string word; words >> word;) {
        const std::optional<int64_t> number = ParseNumber(word);
        if (!number) return std::nullopt;
        numbers.push_back(*number);
    }
    if (numbers.empty()) return std::nullopt;
    return numbers;
}

std::optional<int64_t> PhoneDump::Number(const std::string& path) const {
    const auto numbers = Numbers(path);
    return numbers && numbers->size() == 1 ? std::optional(numbers->front()) : std::nullopt;
}

PhoneDump ReadDump(std::istream& in, const std::string& file) {
    PhoneDump dump;
    dump.file = file;
    if (!DumpReader(dump).Read(in)) {
        throw InputError(file, 0, 0,
                         "this is no dump of a phone: no line is '" + std::string(kFirstLine) +
                             "'; 'tarquel-lab profile --script' prints the script that makes one");
    }
    if (dump.nodes.empty()) throw InputError(file, 0, 0, "this dump has no node");
    return dump;
}

}  // namespace lab

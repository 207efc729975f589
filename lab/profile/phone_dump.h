// What a phone's script printed, read.
#pragma once

#include <istream>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace lab {

struct PhoneDump {
    // kUnreadable: there, but not for who made the dump. kUntold: not in the dump.
    enum class State { kRead, kMissing, kUnreadable, kUntold };
    struct Node {
        State state = State::kMissing;
        std::string value;
        int line = 0;
    };

    std::string file;
    std::string kernel;
    std::map<std::string, std::string> properties;
    std::map<std::string, Node> nodes;  // by path
    std::vector<std::string> problems;  // "FILE:LINE: ...": lines that are damaged, or lost

    State StateOf(const std::string& path) const;

    // What the node read; nothing when it was not read.
    std::optional<std::string> Value(const std::string& path) const;

    // The same as numbers, separated by blanks; nothing when it holds anything else. One number.
    std::optional<std::vector<int64_t>> Numbers(const std::string& path) const;
    std::optional<int64_t> Number(const std::string& path) const;
};

// Reads the lines of DumpScript, with carriage returns or without; what else stands around them is
// passed over. Damage is among the problems. Throws InputError for a text that is no dump.
PhoneDump ReadDump(std::istream& in, const std::string& file);

}  // namespace lab

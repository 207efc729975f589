// Asks the processor for the records of the commands that are read next. A configuration is larger
// than its caches, and each record is found through the one before it: unasked, it waits for them
// one by one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>

#include "tarquel/raw_xml_data.h"

namespace tarquel {

// Walks a map of commands ahead of its reader: reads heads and first elements before their turn,
// and writes nothing. Nothing but time depends on it.
class ReadAhead {
  public:
    explicit ReadAhead(const std::map<int, RawXmlData*>& commands)
        : mElements(commands.begin()), mStrings(commands.begin()), mEnd(commands.end()) {
        for (int i = 0; i < kElementsAhead; ++i) Advance(mElements);
        for (int i = 0; i < kStringsAhead; ++i) Advance(mStrings);
    }

    // Called before each command is read.
    void Step() {
        if (const RawXmlData* element = ElementOf(mElements)) Fetch(element, sizeof(*element));
        if (const RawXmlData* element = ElementOf(mStrings)) {
            Fetch(element->keys.data(), element->keys.size() * sizeof(std::string));
            Fetch(element->values.data(), element->values.size() * sizeof(std::string));
        }
        Advance(mElements);
        Advance(mStrings);
    }

  private:
    using Command = std::map<int, RawXmlData*>::const_iterator;

    // Far enough that what was asked for has come, also for the pointers in it.
    static constexpr int kElementsAhead = 4;
    static constexpr int kStringsAhead = 2;

    void Advance(Command& command) const {
        if (command != mEnd) ++command;
    }

    const RawXmlData* ElementOf(Command command) const {
        return command == mEnd || command->second == nullptr ? nullptr : command->second->next;
    }

    // A run that begins within a line ends in one that is not asked for: doing so, too, made the
    // processor wait.
    static void Fetch(const void* from, size_t bytes) {
        constexpr size_t kLine = 64;
        // Of a long run the processor sees by itself what comes next.
        constexpr size_t kMost = 1024;
        for (size_t at = 0; at < std::min(bytes, kMost); at += kLine) {
            __builtin_prefetch(static_cast<const char*>(from) + at);
        }
    }

    Command mElements;
    Command mStrings;
    Command mEnd;
};

}  // namespace tarquel

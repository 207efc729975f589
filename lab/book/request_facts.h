// What a request asks of the plug-in, in facts. They come with its RequestBegin, from a scenario's
// server or from what a log tells, and are all that the book knows of it.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/names/tag_names.h"

namespace lab {

// A tag and the value asked for it.
struct TagValue {
    int tag = 0;
    int value = 0;
};

// Floors and ceilings that several requesters share: among those in force the strictest counts, and
// 0 lifts one. Every other tag does what it was told last.
bool IsSharedLimit(int tag);

// Who asks where a log does not tell.
inline constexpr char kUnnamed[] = "a requester that the log does not name";

struct RequestFacts {
    enum class Event : uint8_t { kNone, kBegins, kEnds };

    std::string text;             // in words; empty: as the RequestBegin has it
    std::string who;              // "thermal", "touch (4098)"; empty for what nobody asks
    std::optional<int> cmdId;     // of a command's request
    std::optional<int> clientId;  // of a client's
    int result = 0;
    Event event = Event::kNone;      // what a command's payload says
    bool isBoostUsedUp = false;      // its breakthroughs of this period were
    bool isGroup = false;            // a client's, under one lock
    std::vector<TagValue> asked;     // of a client: its own words; a group's first is its marker
    std::vector<TagValue> claims;    // the words on tags that are in force afterwards
    bool isOutcome = false;          // the claims are what counts afterwards, whoever asked for it
    bool isEarlier = false;          // it was made before a capture begins
    bool isRestart = false;          // the policy server began anew: nobody asks for anything
    bool mayLock = false;            // it asks for some lock
    std::set<int> opcodes;           // those that its locks may name
    std::set<int> groupTags;         // tags that a group's one lock holds
    std::string standing;            // "event 4098", "untimed": locks held under a name
    bool replaces = false;           // the name's earlier locks end when this request takes one
    std::vector<std::string> ended;  // names that end here
    std::optional<int> state;        // bits set from here on
    std::vector<int> controlTypes;   // set by it, in order
    std::optional<int> arrangedRefusals;  // locks that the HAL is told to refuse from here on
    bool writesStay = false;              // its node writes are never undone, by design
};

}  // namespace lab

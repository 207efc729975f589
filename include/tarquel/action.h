// The records that carry a configured command from the loader to the adapter.
//
// The order of the fields is the binary contract. Actions of one command are chained through
// `next`; whoever holds the chain owns every action of it and frees each through its virtual
// destructor: no destructor here follows `next`. The records take no lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tarquel/api.h"

// The part of an action that every platform shares.
struct Action {
    // Sets the four arguments; every other field takes the initial value shown below.
    //   duration         ms; -1 is the mark for a missing key
    //   boostLimitLevel  highest thermal level under which the action may boost; -1 for none
    TARQUEL_API Action(int cmdId, std::string name, int duration, int boostLimitLevel);
    TARQUEL_API virtual ~Action();

    Action(const Action&) = delete;
    Action& operator=(const Action&) = delete;

    int32_t cmdId;
    int32_t duration;  // ms; 0 lasts until released
    int32_t boostLimitLevel;
    int32_t tagLen = 0;  // pairs, not ints
    // Header values of the command: set on the head of a chain only.
    int32_t headValue0 = -1;
    int32_t headValue1 = -1;
    int32_t headValue2 = -1;
    int32_t offDelayTime = 0;
    int32_t offDelayPerc = 0;
    int32_t stateMask = 0;     // above 0: runs only while it shares a bit with the adapter's state
    bool hasOffDelay = false;  // head only: some element of the chain has an off delay
    uint8_t skip = 0;          // set: never runs
    uint8_t taskBoost = 0;     // set: takes a task id
    uint8_t breakThrough = 1;  // set: may lift the thermal limit
    std::string name;          // tag name of the XML element
    std::vector<int32_t> reserved;
    std::vector<int32_t> perfList;     // opcode, value, opcode, value, ...
    std::vector<int32_t> boostLevels;  // boost-frequency level for thermal level 1, 2, 3, 4
    Action* next = nullptr;            // next action of the same command
};

// This platform's action: opcode/value pairs in `perfList`, or name/value pairs in `interList`.
struct QcomAction : Action {
    // Opcode form: copies `count` pairs from `pairs` (opcode, value, ...) into perfList.
    //   count  pairs; 0 copies nothing; a negative count, or one that no list has, throws
    //          std::length_error
    //   pairs  2 x count ints; null leaves the action without pairs, with a log line
    TARQUEL_API QcomAction(int cmdId, std::string name, int duration, int boostLimitLevel,
                           int count, int* pairs);
    // Interactive-governor form: assigns the first 2 x count strings of `strings` to interList;
    // entries that `strings` does not have stay empty. Throws as the opcode form.
    TARQUEL_API QcomAction(int cmdId, std::string name, int duration, int boostLimitLevel,
                           int count, std::vector<std::string> strings);
    TARQUEL_API ~QcomAction() override;

    std::vector<std::string> interList;  // name, value, name, value, ...
};

// One XML element as the policy server hands it over.
//
// The server's own declaration: the order of the fields is the binary contract. The server fills
// everything but offDelayTime, offDelayPerc and boostLevels, which the loader writes while it
// reads the element, and it keeps ownership of the whole chain.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct RawXmlData {
    int32_t cmdId = 0;
    // Header values of the command; meaningful on the command's head record only.
    int32_t headValue0 = -1;
    int32_t headValue1 = -1;
    int32_t headValue2 = -1;
    int32_t offDelayTime = 0;  // written by the loader: "off_delay_time"
    int32_t offDelayPerc = 0;  // written by the loader: "off_delay_perc"
    int32_t stateMask = 0;
    uint8_t skip = 0;
    uint8_t taskBoost = 0;
    std::string name;                  // tag name of the element
    std::vector<std::string> keys;     // child names, in document order
    std::vector<std::string> values;   // child values, aligned with keys
    std::vector<int32_t> boostLevels;  // written by the loader: "boost_limit_level"
    RawXmlData* next = nullptr;        // next element of the same command
};

// Configurations of many commands, as the server's XML reader hands them over.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "tarquel/action.h"
#include "tarquel/raw_xml_data.h"

namespace bench {

// Keys of an action element of every configuration: "duration_ms" and seven tunables.
inline constexpr int kKeysPerCommand = 8;

class Configuration {
  public:
    // `commands` commands of one element each, their keys spread over the vocabulary.
    explicit Configuration(int commands);

    std::map<int, RawXmlData*>& Commands() { return mCommands; }

    // One pass over every character of the keys and values, which no loader goes below.
    unsigned Sum() const;

  private:
    std::vector<std::unique_ptr<RawXmlData>> mRecords;
    std::map<int, RawXmlData*> mCommands;
};

// What the loader has to take from the heap for one command, and to fill: a record and its pairs.
struct RecordBlocks {
    std::vector<int32_t> pairs = std::vector<int32_t>(2 * (kKeysPerCommand - 1));
    std::array<std::byte, sizeof(QcomAction) - sizeof(std::vector<int32_t>)> rest{};
};
using HeapBlocks = std::map<int, std::unique_ptr<RecordBlocks>>;

// The blocks of a configuration, in the order in which the loader takes them.
std::unique_ptr<HeapBlocks> AllocateBlocks(int commands);

}  // namespace bench

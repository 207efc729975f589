// Configurations of many commands, as the server's XML reader hands them over.
#pragma once

#include <map>
#include <memory>
#include <vector>

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

}  // namespace bench

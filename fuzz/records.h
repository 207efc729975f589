// Configuration records as a server with a broken reader might hand them over: chains, cycles,
// lists of unequal length, keys of every vocabulary and of none.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/source.h"
#include "tarquel/raw_xml_data.h"

namespace fuzz {

class Records {
  public:
    // Draws commands until the source is empty, `kMost` records at most.
    explicit Records(Source& source);

    // The loader's input; some heads are null or have no element. The records belong to this
    // object.
    std::map<int, RawXmlData*>& Heads() { return mHeads; }

    const std::vector<std::unique_ptr<RawXmlData>>& All() const { return mRecords; }

    // What a loader must leave as it was, as one text.
    std::string Fixed() const;

  private:
    static constexpr size_t kMost = 24;

    void DrawCommand(Source& source);
    RawXmlData& DrawElement(Source& source, int cmdId);

    std::vector<std::unique_ptr<RawXmlData>> mRecords;
    std::map<int, RawXmlData*> mHeads;
};

}  // namespace fuzz

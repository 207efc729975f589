// Every tag on a device: what the tables say of it, and what the running plug-in does with it.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "lab/names/paint.h"
#include "lab/names/table.h"
#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"

namespace lab {

struct TagReport {
    struct Node {
        std::string path;
        bool exists = false;
    };

    int tag = 0;
    std::vector<std::string> names;  // the first one is that of reports
    std::string meaning;
    Unit unit = Unit::kNone;
    Bound bound = Bound::kExact;
    std::optional<int> opcode;        // of the table
    std::vector<Node> nodes;          // of the tables; the CPUs of a cluster share one
    std::optional<std::string> boot;  // what the node reads after boot
    std::optional<int> present;       // what the plug-in reads; none: it cannot read the tag
    // What a request for the tag was seen to do, by what the HAL and the kernel got.
    std::optional<int> lockOpcode;
    bool isWritten = false;  // the plug-in writes the node itself, too
    bool isControl = false;  // it steers the plug-in instead of a tunable

    bool IsSettable() const { return lockOpcode || isWritten || isControl; }
};

// Starts a phone of `device` and the plug-in on it, reads every tag, then sets each one.
//   library  the plug-in; empty: the one beside the program
std::vector<TagReport> SurveyTags(const DeviceProfile& device, const std::string& library);

void PrintTags(std::ostream& out, const std::vector<TagReport>& tags, bool wholePaths,
               const Paint& paint);

// The tags of one device as a section of a page of documentation.
void PrintTagsSection(std::ostream& out, const DeviceProfile& device,
                      const std::vector<TagReport>& tags);

// As JSON, with everything that there is to tell.
nlohmann::json TagsJson(const DeviceProfile& device, const std::vector<TagReport>& tags);

}  // namespace lab

// What frequencies cost, in the user's own numbers or those of the kernel's energy model.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "lab/phone/device_profile.h"

namespace lab {

class PowerModel {
  public:
    // Reads a list of {cluster, khz or mhz, mw} in YAML, or the same as CSV with these headings.
    // Throws InputError that names the line: what is no number, no cluster of `device`, said twice,
    // and a cluster without the power of its lowest step.
    static PowerModel Load(const std::string& file, const DeviceProfile& device);

    bool Has(const std::string& range) const { return mTables.count(range) > 0; }

    // In mW, between two that are told on the straight line between them. Throws InputError for a
    // frequency above the highest that is told.
    double PowerAt(const std::string& range, int64_t khz) const;

    const std::string& File() const { return mFile; }

  private:
    std::string mFile;
    std::map<std::string, std::map<int64_t, double>> mTables;  // by range, then kHz
};

}  // namespace lab

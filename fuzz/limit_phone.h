// What a phone makes of limits: the plug-in's locks and writes on one side, what the nodes read on
// the other. The perf HAL's way to resolve locks and the kernel's to keep requests, without a
// phone.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/hal/opcode_drives.h"
#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/freq_limits.h"

namespace lab {

class LimitPhone {
  public:
    struct Lock {
        int number = 0;         // ascending; the HAL's handles are others
        std::vector<int> list;  // opcode, value, ...
        std::optional<int64_t> untilMs;
    };

    // As after boot. Keeps a reference to the device.
    explicit LimitPhone(const DeviceProfile& device);

    LimitPhone(const LimitPhone&) = delete;
    LimitPhone& operator=(const LimitPhone&) = delete;

    bool Has(int tag) const { return mNodes.count(tag) > 0; }
    const std::string& PathOf(int tag) const { return mNodes.at(tag).path; }

    // A new lock; returns its number.
    int Take(std::vector<int> list, std::optional<int64_t> untilMs);

    // A lock that is held gets another list and end.
    void Renew(int number, std::vector<int> list, std::optional<int64_t> untilMs);

    // A lock ends; one that is not held does nothing.
    void Drop(int number);

    // Null for one that is not held.
    const Lock* Find(int number) const;

    // By ascending number.
    const std::vector<Lock>& Held() const { return mLocks; }

    // The plug-in writes the node of a limit, where there is one.
    void Write(int tag, int value);

    // What a read of the limit's node gives, and what meets there.
    int64_t Reading(int tag) const;
    Kernel::LimitRequests Requests(int tag) const;

  private:
    struct Claim {
        int number = 0;  // of the lock
        int64_t value = 0;
    };
    struct Node {
        std::string path;
        std::shared_ptr<FreqLimits> limits;  // of both ends
        Side side = Side::kMin;
        std::vector<Claim> claims;         // of locks beside what is written
        std::vector<Claim> inPlaceClaims;  // of those that stand in its place
        // What was written, while the HAL's value stands in its place or has stood there before a
        // later write.
        std::optional<std::string> covered;
        std::optional<int64_t> inPlace;  // what the HAL last put there
    };

    const std::vector<Drive>& Drives(int opcode);
    void AddClaims(const Lock& lock);
    void DropClaims(int number);
    static void Settle(Node& node);

    const DeviceProfile& mDevice;
    std::map<int, Node> mNodes;  // by tag
    std::vector<Lock> mLocks;
    int mLastNumber = 0;
    std::map<int, std::vector<Drive>> mDrives;  // by opcode
};

}  // namespace lab

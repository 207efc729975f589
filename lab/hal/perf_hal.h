// The lab's perf HAL: holds locks, renews and expires them, resolves several locks on one resource
// and applies the result to the phone's nodes.
//
// The plug-in reaches it as it does on a phone: libqti-perfd-client.so, opened at run time through
// the property, forwards its two functions here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/hal/opcode_drives.h"
#include "lab/phone/clock.h"

namespace lab {

class Kernel;
class Recorder;

class PerfHal {
  public:
    struct Lock {
        int handle = 0;
        std::vector<int> list;      // opcode, value, ...
        Time since{};               // taken; a renewal does not change it
        std::optional<Time> until;  // none: until released
    };

    PerfHal(Clock& clock, Recorder& recorder, Kernel& kernel);
    ~PerfHal();

    // The two functions of the HAL, recorded as LockAcquire and LockRelease.
    //   list     opcode, value, opcode, value, ...; `count` ints
    //   Acquire  the handle (1 or above), or what RefuseNext asked for; -1 for a list that is null,
    //            empty or odd and for a negative duration. A handle that is held gets the new list
    //            and duration; acquiring one that is not held takes a new lock
    //   Release  0, or -1 for a handle that is not held
    //   Threads  any
    int Acquire(int handle, int durationMs, const int* list, int count);
    int Release(int handle);

    // Makes the next `count` acquisitions return `result` (0 or -1) and take no lock.
    void RefuseNext(int count, int result);

    // The locks held now, by ascending handle.
    std::vector<Lock> Held() const;

    // A lock's say on a node.
    struct Claim {
        int handle = 0;
        int opcode = 0;
        int value = 0;                // as in the lock's list
        int64_t nodeValue = 0;        // in the node's unit
        std::optional<size_t> entry;  // which number of a node with several
        bool isInPlace = false;       // stands in the place of what programs write to the node
        bool wins = false;            // counts; a ceiling that an in-place claim lifts does not
        Drive::Winner winner = Drive::Winner::kNewest;  // among the claims on this node
    };

    // The claim of a pair of a lock's list on a node that its opcode drives; not weighed.
    static Claim ClaimOf(const Drive& drive, int handle, int opcode, int value,
                         const DeviceProfile& profile);

    // True where `claim` counts and the older `other` on the same number of the node does not.
    static bool Beats(const Claim& claim, const Claim& other);

    // Says which of all claims on a node win; they are in the order in which they were made.
    static void Weigh(std::vector<Claim>& claims);

    // Why does this node hold this value: the locks that bear on it, oldest first. What programs
    // themselves have asked for is the kernel's to tell (Kernel::RequestsOn).
    std::vector<Claim> ClaimsOn(const std::string& path) const;

  private:
    class Locks;
    std::unique_ptr<Locks> mLocks;
};

}  // namespace lab

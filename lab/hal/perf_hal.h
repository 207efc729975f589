// The lab's perf HAL: holds locks, renews and expires them, resolves several locks on one resource
// and applies the result to the phone's nodes.
//
// The plug-in reaches it as it does on a phone: libqti-perfd-client.so, opened at run time through
// the property, forwards its two functions here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lab/hal/opcode_drives.h"
#include "lab/phone/clock.h"
#include "lab/phone/kernel.h"

namespace lab {

class Recorder;

class PerfHal {
  public:
    struct Lock {
        int handle = 0;
        std::vector<int> list;      // opcode, value, ...
        Time since{};               // taken; a renewal does not change it
        std::optional<Time> until;  // none: until released
    };

    PerfHal(Clock& clock, Recorder& recorder, Kernel& kernel)
        : mClock(clock), mRecorder(recorder), mKernel(kernel) {}
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
    struct HeldLock {
        Lock lock;
        std::optional<Clock::Id> expiry;
    };

    // A node, and the way in which the HAL writes it: locks that share both compete. The name is
    // that of a drive, which stays as long as the HAL does.
    using ResourceKey = std::pair<std::string_view, Kernel::Writer>;

    struct Resource {
        const Drive* drive = nullptr;
        std::vector<Claim> claims;           // oldest first
        std::optional<std::string> written;  // what the HAL has in the node now
        bool isAsWritten = true;             // the node took it without clamping or refusing
    };

    void Hold(int handle, int durationMs, std::vector<int> list);
    void LetGo(int handle);
    void Expire(int handle);
    const std::vector<Drive>& Drives(int opcode);
    std::vector<ResourceKey> AddClaims(const Lock& lock);
    std::vector<ResourceKey> DropClaims(const Lock& lock);
    bool IsLifted(const Drive& drive) const;
    std::optional<std::string> WantedIn(const Resource& resource) const;
    std::string WantedVector(const Resource& resource) const;
    std::vector<ResourceKey> WithCeilings(const std::vector<ResourceKey>& changed) const;
    void Apply(const std::vector<ResourceKey>& named);
    void Put(Resource& resource, const std::optional<std::string>& wanted);

    Clock& mClock;
    Recorder& mRecorder;
    Kernel& mKernel;

    mutable std::mutex mMutex;  // guards what follows
    std::map<int, HeldLock> mHeld;
    std::map<ResourceKey, Resource> mResources;  // those on which a lock has a claim
    std::map<int, std::vector<Drive>> mDrives;   // by opcode
    int mLastHandle = 0;
    int mRefusals = 0;
    int mRefusal = 0;
};

}  // namespace lab

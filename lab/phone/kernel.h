// The phone's kernel: a tree of nodes with the values that a read gives and the rules that a write
// meets (clamping to a table, minimum against maximum, refusal of nonsense).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "lab/phone/device_profile.h"
#include "lab/phone/events.h"
#include "lab/phone/node_rules.h"

namespace lab {

class Kernel {
  public:
    // Who writes a node, which decides what the write stands beside and what it replaces.
    enum class Writer : uint8_t {
        // Any program. The node's own value, or a limit node's ordinary request.
        kProgram,
        // The perf HAL through a request of its own beside the program's; on a node that keeps no
        // requests it is kHalInPlace.
        kHal,
        // The perf HAL in the program's place. A program's write during that time counts at once
        // and is what Withdraw goes back to. On a node that counts its writes (sched_boost) there
        // is nothing to go back to: the HAL undoes a write with another.
        kHalInPlace,
    };

    // What meets in a limit node (cpufreq's scaling limits, the GPU's devfreq limits).
    struct LimitRequests {
        int64_t program = 0;             // the program's, as the kernel took it
        std::optional<int64_t> inPlace;  // the HAL's that stands in its place
        std::optional<int64_t> hal;      // the HAL's own
    };

    // Lays out the nodes of `profile` as files in a new temporary folder: those that `layOut`
    // makes, or LayOutNodes. Throws std::system_error when that fails.
    Kernel(const DeviceProfile& profile, Recorder& recorder, const NodeLayout& layOut = nullptr);
    ~Kernel();

    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;

    const DeviceProfile& Profile() const { return mProfile; }

    // True for a path that this kernel answers for: below /sys, /proc/sys or /dev/cpuctl.
    static bool Owns(const char* path);

    // Every node, sorted; a file that several CPUs of a cluster share is listed under each.
    std::vector<std::string> Paths() const;

    bool Has(const std::string& path) const;

    // True when both paths name one node (the CPUs of a cluster share their policy's nodes).
    bool IsSameNode(const std::string& path, const std::string& other) const;

    // What reading the node gives, without the newline. Empty when there is no such node.
    std::string Value(const std::string& path) const;

    // As Value, but what it was before the HAL wrote in the program's place.
    std::string ProgramValue(const std::string& path) const;

    // The requests on a limit node; none for another node or a missing one.
    std::optional<LimitRequests> RequestsOn(const std::string& path) const;

    // Opens the node as a program would. Returns 0 or the errno: ENOENT for a missing node, EACCES
    // for writing one that can only be read. Records a read, and any refusal.
    int Open(const std::string& path, bool forWriting);

    // What opening gives where there is no such node: EACCES to a program that would create one
    // (`creates`) in a folder of sysfs or cgroups that there is, else ENOENT.
    int MissingError(const std::string& path, bool creates) const;

    // Writes `text`, rules and all, and records that. Returns 0 or the errno.
    int Write(const std::string& path, const std::string& text, Writer writer = Writer::kProgram);

    // The same at `offset` of the file. Returns how many bytes were taken, or the negative errno.
    ssize_t WriteAt(const std::string& path, const std::string& text, size_t offset,
                    Writer writer = Writer::kProgram);

    // Takes back what the HAL wrote as `writer`; the program's own shows again. Records the write
    // if there was anything to take back.
    void Withdraw(const std::string& path, Writer writer);

    // Sets what a read gives, past every rule and until the next accepted write; creates the node
    // when it is missing. For arranging a situation, not for requests. Returns what else reads
    // otherwise then, as NodeAccess::alsoChanged tells it.
    std::vector<NodeValue> Force(const std::string& path, const std::string& text);

    // Takes a node away under this name; opening it gives ENOENT. A cluster's other CPUs keep
    // theirs.
    void Remove(const std::string& path);

    // The file that holds the node, brought up to date when the node is opened for reading.
    std::string FileOf(const std::string& path) const;

    // As FileOf, for reading: for a node that cannot be read just now something else that opens and
    // cannot be read.
    std::string FileToRead(const std::string& path) const;

    // The folder that holds the node files, for a look with ordinary tools. Brings all up to date:
    // between two looks a file may keep an older text.
    const std::string& Folder() const;

  private:
    struct Entry;
    using Entries = std::map<std::string, std::shared_ptr<Entry>>;
    using Neighbours = std::vector<const Entries::value_type*>;

    Entry* Find(const std::string& path) const;
    void Add(NamedNode named);
    void UpdateFile(Entry& entry) const;
    const Neighbours& Beside(Entry& entry);
    std::vector<std::string> ShownBeside(Entry& entry);
    std::vector<NodeValue> ChangedBeside(Entry& entry, const std::vector<std::string>& before);
    ssize_t Store(Entry& entry, const std::string& text, size_t offset, Writer writer);

    const DeviceProfile mProfile;
    Recorder& mRecorder;
    const std::string mFolder;

    mutable std::mutex mMutex;  // guards what follows
    Entries mEntries;
    std::unordered_map<std::string, Entry*> mByName;       // the same, found sooner
    std::unordered_map<const Entry*, Neighbours> mBeside;  // found once, until nodes come or go
};

}  // namespace lab

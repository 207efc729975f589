// What one kernel node shows and what it does with a text that is written to it.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/phone/device_profile.h"

namespace lab {

// A node without its name. Not guarded: the kernel calls it with its own mutex held.
class Node {
  public:
    virtual ~Node() = default;

    // What a read gives, without the newline.
    virtual std::string Show() const = 0;

    // The errno with which a read fails instead, or 0.
    virtual int ReadError() const { return 0; }

    // Takes `text`, written at `offset` of the file, as the kernel does. Returns how many bytes it
    // took, or the negative errno; a refusal changes nothing but where a kind says otherwise.
    virtual ssize_t Store(const std::string& text, size_t offset) = 0;

    // The node's own state as a text that it takes, and back. Text that is no state of this node
    // is ignored.
    virtual std::string Save() const { return Show(); }
    virtual void Restore(const std::string& saved) = 0;

    virtual bool IsReadOnly() const { return false; }

    // True for a node that counts what is written to it: undoing a write takes another write.
    virtual bool IsCounted() const { return false; }

    // True for a node that keeps several requests and shows what follows from all; the perf HAL has
    // one of its own there. None takes that back.
    virtual bool KeepsRequests() const { return false; }
    virtual std::optional<int64_t> HalRequest() const { return std::nullopt; }
    virtual void SetHalRequest(std::optional<int64_t>) {}
};

// A node of a device under all its names: the CPUs of a cluster share their policy's nodes.
// The first name is the one under which the kernel keeps it.
struct NamedNode {
    std::vector<std::string> names;
    std::shared_ptr<Node> node;
};

// The folder in which a node is, without the slash behind it.
inline std::string_view FolderOf(std::string_view path) {
    return path.substr(0, path.rfind('/'));
}

// Where kernels answer differently. As it is made, the phones' generation (5.10).
struct KernelRules {
    bool snapsCpuLimits = false;          // a limit becomes a step of the table
    int offlineWriteError = EINVAL;       // a limit of a cluster without a CPU that runs
    int offlineReadError = 0;             // and of any node of its policy; 0: the last value
    bool refusesNegativeRequest = false;  // a limit that is below -1 as a 32-bit number
    bool knowsTrueAndFalse = false;       // as boolean words
};

// Every node of the device as it is after boot.
std::vector<NamedNode> LayOutNodes(const DeviceProfile& profile, const KernelRules& rules = {});

// Makes the nodes of a device in another way.
using NodeLayout = std::function<std::vector<NamedNode>(const DeviceProfile&)>;

// A node without any rule, for a situation that a test arranges.
std::shared_ptr<Node> MakeFreeNode(const std::string& text);

}  // namespace lab

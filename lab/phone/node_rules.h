// What one kernel node shows and what it does with a text that is written to it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/phone/device_profile.h"

namespace lab {

// A node without its name. Not guarded: the kernel calls it with its own mutex held.
class Node {
  public:
    virtual ~Node() = default;

    // What a read gives, without the newline.
    virtual std::string Show() const = 0;

    // Takes `text` as the kernel does. Returns 0 or the errno; a refusal changes nothing.
    virtual int Store(const std::string& text) = 0;

    // The node's own state as text, and back, past every rule. Text that is no state of this node
    // is ignored.
    virtual std::string Save() const { return Show(); }
    virtual void Restore(const std::string& saved) = 0;

    virtual bool IsReadOnly() const { return false; }

    // True for a node that counts what is written to it: undoing a write takes another write.
    virtual bool IsCounted() const { return false; }

    // The perf HAL's own request on a node that keeps several requests and shows what follows from
    // all; null for a node with one value.
    virtual std::optional<int64_t>* HalRequest() { return nullptr; }
};

// A node of a device under all its names: the CPUs of a cluster share their policy's nodes.
// The first name is the one under which the kernel keeps it.
struct NamedNode {
    std::vector<std::string> names;
    std::shared_ptr<Node> node;
};

// Every node of the device as it is after boot.
std::vector<NamedNode> LayOutNodes(const DeviceProfile& profile);

// A node without any rule, for a situation that a test arranges.
std::shared_ptr<Node> MakeFreeNode(const std::string& text);

// The request in a text: the number with which it begins, saturating. None: no number.
std::optional<int64_t> ParseLeadingNumber(const std::string& text);

}  // namespace lab

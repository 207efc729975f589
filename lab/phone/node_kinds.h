// The kinds of node that the phone's kernel has. A kind is a rule: how a text is read, to what it
// is clamped, against which neighbour it is checked and what is refused.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/phone/node_rules.h"

namespace lab {

// A file of sysfs: what is written counts from the file's beginning wherever it is written, and no
// more than a page of it, up to a NUL. Nothing written is nothing done.
class SysfsNode : public Node {
  public:
    ssize_t Store(const std::string& text, size_t offset) final;

  protected:
    // Returns 0 or the errno.
    virtual int Take(const std::string& text) = 0;
};

// How a text becomes a number: the number with which it begins, less what does not fit into 32 bits
// (the kernel's sscanf), the whole text as a 32-bit number (its kstrtouint), or a boolean word as 1
// or 0 (its kstrtobool: 1, y, on, 0, n, off; a later kernel's knows true and false as well).
enum class Scan : uint8_t { kLeading, kWhole, kBool, kBoolOrTrueFalse };

// A node that shows one number. `take` makes of a number that is written what `value` is then, or
// gives the negative errno.
using TakeNumber = std::function<int64_t(int64_t)>;
std::shared_ptr<Node> MakeNumberNode(Scan scan, std::shared_ptr<int64_t> value, TakeNumber take);

// A node with a number that is clamped below `low` and above `high`.
struct NumberRule {
    std::string_view name;
    Scan scan;
    int64_t low;
    int64_t high;
    int64_t initial;
};
std::shared_ptr<Node> MakeNumberNode(const NumberRule& rule);

// A node of /proc/sys with ints, tabs between. What is written at another place than the beginning
// is passed over; a write with fewer numbers sets the first ones, and what stands behind the last
// number is not taken. Where a number is refused, which `takes` decides, those before it stay.
using Ints = std::vector<int64_t>;
using TakesInt = std::function<bool(size_t index, int64_t number)>;
std::shared_ptr<Node> MakeSysctlNode(Ints initial, TakesInt takes);

// One whose numbers `takes` checks against those of another node. The first `count` can be written.
std::shared_ptr<Node> MakeCheckedSysctlNode(std::shared_ptr<Ints> ints, size_t count,
                                            TakesInt takes);

// A node that can only be read. `readError` gives the errno with which that fails, or 0.
std::shared_ptr<Node> MakeReadOnlyNode(std::function<std::string()> show,
                                       std::function<int()> readError = nullptr);

// The scheduler's boost: N from 1 to 3 takes a reference on boost N, -N drops one, 0 clears all.
// Shows the lowest-numbered boost that is held, 0 for none.
std::shared_ptr<Node> MakeSchedBoostNode();

// A utilization clamp: percent with two decimals, or "max", which is what rounds to the whole in
// steps of 1/1024.
std::shared_ptr<Node> MakeUclampNode(const std::string& initial);

}  // namespace lab

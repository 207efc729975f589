// The kinds of node that the phone's kernel has. A kind is a rule: how a text is read, to what it
// is clamped, against which neighbour it is checked and what is refused.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/phone/freq_limits.h"
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

// A file of /proc/sys with ints in it. What is written at another place than the beginning is
// passed over; a write with fewer numbers sets the first ones, and what stands behind the last
// number is not taken. Where a number is refused, those before it stay.
class SysctlNode : public Node {
  public:
    ssize_t Store(const std::string& text, size_t offset) final;

  protected:
    virtual size_t Count() const = 0;

    // Sets the number of that index; false: refused.
    virtual bool Set(size_t index, int64_t number) = 0;
};

// How a text becomes a number: the number with which it begins, less what does not fit into 32 bits
// (the kernel's sscanf), or the whole text as a 32-bit number (its kstrtouint).
enum class Scan : uint8_t { kLeading, kWhole };

// A node with one number. Below `low` and above `high` it is clamped.
struct NumberRule {
    std::string_view name;
    Scan scan;
    int64_t low;
    int64_t high;
    int64_t initial;
};
std::shared_ptr<Node> MakeNumberNode(const NumberRule& rule);

// A node that takes a boolean word (1, y, on, 0, n, off) and shows 1 or 0.
std::shared_ptr<Node> MakeBoolNode(bool initial, const KernelRules& rules);

// A node of /proc/sys with as many numbers as `initial`, each from `low` to `high`, tabs between.
std::shared_ptr<Node> MakeSysctlNode(std::vector<int64_t> initial, int64_t low, int64_t high);

// A node of /proc/sys that takes one of a few numbers.
std::shared_ptr<Node> MakeChoiceNode(std::vector<int64_t> choices, int64_t initial);

// A node that can only be read. `readError` gives the errno with which that fails, or 0.
std::shared_ptr<Node> MakeReadOnlyNode(std::function<std::string()> show,
                                       std::function<int()> readError = nullptr);

// A bus monitor's range: each end stays between the hardware's end and the other one.
struct BusLimits {
    int64_t low = 0;
    int64_t high = 0;
    int64_t min = 0;
    int64_t max = 0;
};
std::shared_ptr<Node> MakeBusLimitNode(std::shared_ptr<BusLimits> limits, Side side);

// A clock given by the GPU's power levels: a number within 5 MHz of a level selects it, another is
// `noMatchError` (0: ignored). Numbers and what is shown are in `hzPerUnit` (1 or 1000000).
std::shared_ptr<Node> MakeGpuLevelNode(std::vector<int64_t> levelsMhz, int64_t initialMhz,
                                       int64_t hzPerUnit, int noMatchError);

// The scheduler's boost: N from 1 to 3 takes a reference on boost N, -N drops one, 0 clears all.
// Shows the lowest-numbered boost that is held, 0 for none.
std::shared_ptr<Node> MakeSchedBoostNode();

// Percentages at which a task moves up and down, one of each for each cluster boundary; up stays at
// or above down. A read always gives two.
struct MigrateMargins {
    static constexpr size_t kShown = 2;

    size_t boundaries = kShown;
    std::array<int64_t, kShown> up{};
    std::array<int64_t, kShown> down{};
};
std::shared_ptr<Node> MakeMigrateNode(std::shared_ptr<MigrateMargins> margins, bool isUp);

// A utilization clamp: percent with two decimals, or "max", which is what rounds to the whole in
// steps of 1/1024.
std::shared_ptr<Node> MakeUclampNode(const std::string& initial);

}  // namespace lab

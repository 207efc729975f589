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

#include "lab/phone/node_rules.h"

namespace lab {

// How a text becomes a number: the number with which it begins (the kernel's sscanf), or the whole
// text as a 32-bit number (its kstrtouint).
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
std::shared_ptr<Node> MakeBoolNode(bool initial);

// A node that takes one of a few numbers.
std::shared_ptr<Node> MakeChoiceNode(std::vector<int64_t> choices, int64_t initial);

// A node that can only be read.
std::shared_ptr<Node> MakeReadOnlyNode(std::function<std::string()> show);

enum class Side : uint8_t { kMin, kMax };

// The two ends of a frequency range with the requests of each: a program's own, which the node
// keeps as written, and the perf HAL's. The lowest maximum and the highest minimum count; where
// they cross, the minimum is the maximum.
struct FreqLimits {
    struct Requests {
        int64_t program = 0;
        std::optional<int64_t> hal;
    };

    int64_t low = 0;
    int64_t high = 0;
    bool zeroLiftsMax = false;  // a maximum of 0 means none
    Requests min;
    Requests max;

    FreqLimits(int64_t lowest, int64_t highest, bool zeroLifts)
        : low(lowest), high(highest), zeroLiftsMax(zeroLifts), min{lowest, {}}, max{highest, {}} {}

    int64_t EffectiveMin() const;
    int64_t EffectiveMax() const;
};
std::shared_ptr<Node> MakeFreqLimitNode(std::shared_ptr<FreqLimits> limits, Side side);

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

// Percentages at which a task moves up and down, one of each for each cluster boundary. A write
// gives all of them; up stays at or above down. A read always gives two.
struct MigrateMargins {
    static constexpr size_t kShown = 2;

    size_t boundaries = kShown;
    std::array<int64_t, kShown> up{};
    std::array<int64_t, kShown> down{};
};
std::shared_ptr<Node> MakeMigrateNode(std::shared_ptr<MigrateMargins> margins, bool isUp);

// A utilization clamp: percent with two decimals, or "max".
std::shared_ptr<Node> MakeUclampNode(const std::string& initial);

}  // namespace lab

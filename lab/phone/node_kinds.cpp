#include "lab/phone/node_kinds.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <utility>

#include "lab/phone/kernel_text.h"

namespace lab {

namespace {

constexpr int64_t kU32Max = std::numeric_limits<uint32_t>::max();
constexpr size_t kPageSize = 4096;

std::optional<int64_t> Parse(Scan scan, const std::string& text) {
    if (scan == Scan::kWhole) return ParseWholeNumber(text);
    const std::optional<uint64_t> number = ScanNumber(text);
    if (!number) return std::nullopt;
    return static_cast<int64_t>(*number & kU32Max);
}

class NumberNode : public SysfsNode {
  public:
    explicit NumberNode(const NumberRule& rule) : mRule(rule), mValue(rule.initial) {}

    std::string Show() const override { return std::to_string(mValue); }
    void Restore(const std::string& saved) override {
        if (const auto value = ParseWholeNumber(saved)) mValue = *value;
    }

  protected:
    int Take(const std::string& text) override {
        const std::optional<int64_t> value = Parse(mRule.scan, text);
        if (!value) return EINVAL;
        mValue = std::clamp(*value, mRule.low, mRule.high);
        return 0;
    }

  private:
    const NumberRule mRule;
    int64_t mValue;
};

class BoolNode : public SysfsNode {
  public:
    BoolNode(bool initial, bool knowsTrueAndFalse)
        : mKnowsTrueAndFalse(knowsTrueAndFalse), mValue(initial) {}

    std::string Show() const override { return mValue ? "1" : "0"; }
    void Restore(const std::string& saved) override { mValue = saved == "1"; }

  protected:
    int Take(const std::string& text) override {
        const std::optional<bool> value = ParseBool(text, mKnowsTrueAndFalse);
        if (!value) return EINVAL;
        mValue = *value;
        return 0;
    }

  private:
    const bool mKnowsTrueAndFalse;
    bool mValue;
};

class SysctlNumbersNode : public SysctlNode {
  public:
    SysctlNumbersNode(std::vector<int64_t> initial, int64_t low, int64_t high)
        : mNumbers(std::move(initial)), mLow(low), mHigh(high) {}

    std::string Show() const override {
        std::string text;
        for (const int64_t number : mNumbers) {
            text += (text.empty() ? "" : "\t") + std::to_string(number);
        }
        return text;
    }
    void Restore(const std::string& saved) override { Store(saved, 0); }

  protected:
    size_t Count() const override { return mNumbers.size(); }
    bool Set(size_t index, int64_t number) override {
        if (number < mLow || number > mHigh) return false;
        mNumbers[index] = number;
        return true;
    }

  private:
    std::vector<int64_t> mNumbers;
    const int64_t mLow;
    const int64_t mHigh;
};

class ChoiceNode : public SysctlNode {
  public:
    ChoiceNode(std::vector<int64_t> choices, int64_t initial)
        : mChoices(std::move(choices)), mValue(initial) {}

    std::string Show() const override { return std::to_string(mValue); }
    void Restore(const std::string& saved) override { Store(saved, 0); }

  protected:
    size_t Count() const override { return 1; }
    bool Set(size_t, int64_t number) override {
        if (std::find(mChoices.begin(), mChoices.end(), number) == mChoices.end()) return false;
        mValue = number;
        return true;
    }

  private:
    const std::vector<int64_t> mChoices;
    int64_t mValue;
};

class ReadOnlyNode : public Node {
  public:
    ReadOnlyNode(std::function<std::string()> show, std::function<int()> readError)
        : mShow(std::move(show)), mReadError(std::move(readError)) {}

    std::string Show() const override { return mShow(); }
    int ReadError() const override { return mReadError ? mReadError() : 0; }
    ssize_t Store(const std::string&, size_t) override { return -EACCES; }
    void Restore(const std::string&) override {}
    bool IsReadOnly() const override { return true; }

  private:
    const std::function<std::string()> mShow;
    const std::function<int()> mReadError;
};

class BusLimitNode : public SysfsNode {
  public:
    BusLimitNode(std::shared_ptr<BusLimits> limits, Side side)
        : mLimits(std::move(limits)), mSide(side) {}

    std::string Show() const override {
        return std::to_string(mSide == Side::kMin ? mLimits->min : mLimits->max);
    }
    void Restore(const std::string& saved) override {
        const auto value = ParseWholeNumber(saved);
        if (value) (mSide == Side::kMin ? mLimits->min : mLimits->max) = *value;
    }

  protected:
    int Take(const std::string& text) override {
        const std::optional<int64_t> value = ParseWholeNumber(text);
        if (!value) return EINVAL;
        if (mSide == Side::kMin) {
            mLimits->min = std::min(std::max(*value, mLimits->low), mLimits->max);
        } else {
            mLimits->max = std::max(std::min(*value, mLimits->high), mLimits->min);
        }
        return 0;
    }

  private:
    const std::shared_ptr<BusLimits> mLimits;
    const Side mSide;
};

class GpuLevelNode : public SysfsNode {
  public:
    GpuLevelNode(std::vector<int64_t> levelsMhz, int64_t initialMhz, int64_t hzPerUnit,
                 int noMatchError)
        : mLevelsMhz(std::move(levelsMhz)),
          mHzPerUnit(hzPerUnit),
          mNoMatchError(noMatchError),
          mMhz(initialMhz) {}

    std::string Show() const override { return std::to_string(mMhz * kHzPerMhz / mHzPerUnit); }
    void Restore(const std::string& saved) override {
        if (const auto value = ParseWholeNumber(saved)) mMhz = *value * mHzPerUnit / kHzPerMhz;
    }

  protected:
    int Take(const std::string& text) override {
        constexpr int64_t kReachHz = 5 * kHzPerMhz;
        const std::optional<int64_t> value = ParseWholeNumber(text);
        if (!value) return EINVAL;
        for (const int64_t mhz : mLevelsMhz) {
            if (std::abs(mhz * kHzPerMhz - *value * mHzPerUnit) > kReachHz) continue;
            mMhz = mhz;
            return 0;
        }
        return mNoMatchError;
    }

  private:
    const std::vector<int64_t> mLevelsMhz;
    const int64_t mHzPerUnit;
    const int mNoMatchError;
    int64_t mMhz;
};

class SchedBoostNode : public SysctlNode {
  public:
    std::string Show() const override {
        for (size_t boost = 1; boost <= kBoosts; ++boost) {
            if (mHolders[boost] > 0) return std::to_string(boost);
        }
        return "0";
    }
    void Restore(const std::string& saved) override {
        mHolders.fill(0);
        Store(saved, 0);
    }
    bool IsCounted() const override { return true; }

  protected:
    size_t Count() const override { return 1; }
    bool Set(size_t, int64_t number) override {
        const size_t boost = static_cast<size_t>(std::abs(number));
        if (boost > kBoosts) return false;
        if (number == 0) {
            mHolders.fill(0);
        } else if (number > 0) {
            ++mHolders[boost];
        } else if (mHolders[boost] > 0) {
            --mHolders[boost];
        }
        return true;
    }

  private:
    static constexpr size_t kBoosts = 3;

    std::array<int, kBoosts + 1> mHolders{};
};

class MigrateNode : public SysctlNode {
  public:
    MigrateNode(std::shared_ptr<MigrateMargins> margins, bool isUp)
        : mMargins(std::move(margins)), mIsUp(isUp) {}

    std::string Show() const override {
        const auto& mine = mIsUp ? mMargins->up : mMargins->down;
        return std::to_string(mine[0]) + "\t" + std::to_string(mine[1]);
    }
    void Restore(const std::string& saved) override {
        std::string_view rest = saved;
        auto numbers = mIsUp ? mMargins->up : mMargins->down;
        for (int64_t& number : numbers) {
            const std::optional<int64_t> next = TakeSysctlNumber(rest);
            if (!next) return;
            number = *next;
        }
        (mIsUp ? mMargins->up : mMargins->down) = numbers;
    }

  protected:
    size_t Count() const override { return mMargins->boundaries; }
    bool Set(size_t index, int64_t number) override {
        if (number < 1 || number > 100) return false;
        if (mIsUp ? number < mMargins->down[index] : number > mMargins->up[index]) return false;
        (mIsUp ? mMargins->up : mMargins->down)[index] = number;
        return true;
    }

  private:
    const std::shared_ptr<MigrateMargins> mMargins;
    const bool mIsUp;
};

class UclampNode : public Node {
  public:
    explicit UclampNode(const std::string& initial) { Store(initial, 0); }

    std::string Show() const override {
        // Kept as a percentage, shown as the whole when its share of 1024 rounds to that.
        if ((mHundredths * 1024 + kFull / 2) / kFull == 1024) return "max";
        const std::string decimals = std::to_string(100 + mHundredths % 100).substr(1);
        return std::to_string(mHundredths / 100) + "." + decimals;
    }
    ssize_t Store(const std::string& text, size_t) override {
        if (text.empty()) return 0;
        if (text.size() > kPageSize) return -E2BIG;
        std::string_view word = std::string_view(text).substr(0, text.find('\0'));
        TakeBlanks(word);
        if (word.substr(0, 3) == "max" && IsBlank(word.substr(3))) {
            mHundredths = kFull;
        } else {
            const std::optional<int64_t> hundredths = ParseHundredths(word);
            if (!hundredths) return -EINVAL;
            if (*hundredths < 0 || *hundredths > kFull) return -ERANGE;
            mHundredths = *hundredths;
        }
        return static_cast<ssize_t>(text.size());
    }
    void Restore(const std::string& saved) override { Store(saved, 0); }

  private:
    static constexpr int64_t kFull = 10'000;

    static bool IsBlank(std::string_view text) {
        TakeBlanks(text);
        return text.empty();
    }

    int64_t mHundredths = 0;
};

class FreeNode : public Node {
  public:
    explicit FreeNode(std::string text) : mText(std::move(text)) {}

    std::string Show() const override { return mText; }
    ssize_t Store(const std::string& text, size_t) override {
        mText = text;
        return static_cast<ssize_t>(text.size());
    }
    void Restore(const std::string& saved) override { mText = saved; }

  private:
    std::string mText;
};

}  // namespace

ssize_t SysfsNode::Store(const std::string& text, size_t) {
    const std::string page = text.substr(0, kPageSize);
    if (page.empty()) return 0;
    const int error = Take(page.substr(0, page.find('\0')));
    return error != 0 ? -error : static_cast<ssize_t>(page.size());
}

ssize_t SysctlNode::Store(const std::string& text, size_t offset) {
    if (text.empty() || offset > 0) return static_cast<ssize_t>(text.size());
    std::string_view rest = text;
    TakeBlanks(rest);
    if (rest.empty()) return -EINVAL;
    for (size_t i = 0; i < Count() && !rest.empty(); ++i) {
        const std::optional<int64_t> number = TakeSysctlNumber(rest);
        if (!number || !Set(i, *number)) return -EINVAL;
        TakeBlanks(rest);
    }
    return static_cast<ssize_t>(text.size() - rest.size());
}

std::shared_ptr<Node> MakeNumberNode(const NumberRule& rule) {
    return std::make_shared<NumberNode>(rule);
}

std::shared_ptr<Node> MakeBoolNode(bool initial, const KernelRules& rules) {
    return std::make_shared<BoolNode>(initial, rules.knowsTrueAndFalse);
}

std::shared_ptr<Node> MakeSysctlNode(std::vector<int64_t> initial, int64_t low, int64_t high) {
    return std::make_shared<SysctlNumbersNode>(std::move(initial), low, high);
}

std::shared_ptr<Node> MakeChoiceNode(std::vector<int64_t> choices, int64_t initial) {
    return std::make_shared<ChoiceNode>(std::move(choices), initial);
}

std::shared_ptr<Node> MakeReadOnlyNode(std::function<std::string()> show,
                                       std::function<int()> readError) {
    return std::make_shared<ReadOnlyNode>(std::move(show), std::move(readError));
}

std::shared_ptr<Node> MakeBusLimitNode(std::shared_ptr<BusLimits> limits, Side side) {
    return std::make_shared<BusLimitNode>(std::move(limits), side);
}

std::shared_ptr<Node> MakeGpuLevelNode(std::vector<int64_t> levelsMhz, int64_t initialMhz,
                                       int64_t hzPerUnit, int noMatchError) {
    return std::make_shared<GpuLevelNode>(std::move(levelsMhz), initialMhz, hzPerUnit,
                                          noMatchError);
}

std::shared_ptr<Node> MakeSchedBoostNode() {
    return std::make_shared<SchedBoostNode>();
}

std::shared_ptr<Node> MakeMigrateNode(std::shared_ptr<MigrateMargins> margins, bool isUp) {
    return std::make_shared<MigrateNode>(std::move(margins), isUp);
}

std::shared_ptr<Node> MakeUclampNode(const std::string& initial) {
    return std::make_shared<UclampNode>(initial);
}

std::shared_ptr<Node> MakeFreeNode(const std::string& text) {
    return std::make_shared<FreeNode>(text);
}

}  // namespace lab

#include "lab/phone/node_kinds.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <utility>

#include "lab/phone/kernel_text.h"

namespace lab {

namespace {

constexpr int64_t kU32Max = std::numeric_limits<uint32_t>::max();
constexpr size_t kPageSize = 4096;

bool IsBool(Scan scan) {
    return scan == Scan::kBool || scan == Scan::kBoolOrTrueFalse;
}

std::optional<int64_t> Parse(Scan scan, const std::string& text) {
    if (scan == Scan::kWhole) return ParseWholeNumber(text);
    if (IsBool(scan)) return ParseBool(text, scan == Scan::kBoolOrTrueFalse);
    const std::optional<uint64_t> number = ScanNumber(text);
    if (!number) return std::nullopt;
    return static_cast<int64_t>(*number & kU32Max);
}

class NumberNode : public SysfsNode {
  public:
    NumberNode(Scan scan, std::shared_ptr<int64_t> value, TakeNumber take)
        : mScan(scan), mValue(std::move(value)), mTake(std::move(take)) {}

    std::string Show() const override { return std::to_string(*mValue); }
    void Restore(const std::string& saved) override {
        if (IsBool(mScan)) {
            Take(saved);
        } else if (const auto value = ParseWholeNumber(saved)) {
            *mValue = *value;
        }
    }

  protected:
    int Take(const std::string& text) override {
        const std::optional<int64_t> number = Parse(mScan, text);
        const int64_t taken = number ? mTake(*number) : -EINVAL;
        if (taken < 0) return static_cast<int>(-taken);
        *mValue = taken;
        return 0;
    }

  private:
    const Scan mScan;
    const std::shared_ptr<int64_t> mValue;
    const TakeNumber mTake;
};

class SysctlNode : public Node {
  public:
    explicit SysctlNode(size_t count) : mCount(count) {}

    ssize_t Store(const std::string& text, size_t offset) override {
        if (text.empty() || offset > 0) return static_cast<ssize_t>(text.size());
        std::string_view rest = text;
        TakeBlanks(rest);
        if (rest.empty()) return -EINVAL;
        for (size_t i = 0; i < mCount && !rest.empty(); ++i) {
            const std::optional<int64_t> number = TakeSysctlNumber(rest);
            if (!number || !Set(i, *number)) return -EINVAL;
            TakeBlanks(rest);
        }
        return static_cast<ssize_t>(text.size() - rest.size());
    }
    void Restore(const std::string& saved) override { Store(saved, 0); }

  protected:
    // Sets the number of that index; false: refused.
    virtual bool Set(size_t index, int64_t number) = 0;

  private:
    const size_t mCount;
};

class SysctlNumbersNode : public SysctlNode {
  public:
    SysctlNumbersNode(std::shared_ptr<Ints> ints, size_t count, TakesInt takes)
        : SysctlNode(count), mInts(std::move(ints)), mTakes(std::move(takes)) {}

    std::string Show() const override {
        std::string text;
        for (const int64_t number : *mInts) {
            text += (text.empty() ? "" : "\t") + std::to_string(number);
        }
        return text;
    }

  protected:
    bool Set(size_t index, int64_t number) override {
        if (!mTakes(index, number)) return false;
        (*mInts)[index] = number;
        return true;
    }

    const std::shared_ptr<Ints> mInts;

  private:
    const TakesInt mTakes;
};

class CheckedSysctlNode : public SysctlNumbersNode {
  public:
    using SysctlNumbersNode::SysctlNumbersNode;

    // Unchecked: the other node may not be back yet.
    void Restore(const std::string& saved) override {
        std::string_view rest = saved;
        Ints numbers;
        while (numbers.size() < mInts->size()) {
            const std::optional<int64_t> next = TakeSysctlNumber(rest);
            if (!next) return;
            numbers.push_back(*next);
        }
        *mInts = numbers;
    }
};

class SchedBoostNode : public SysctlNode {
  public:
    SchedBoostNode() : SysctlNode(1) {}

    std::string Show() const override {
        for (size_t boost = 1; boost <= kBoosts; ++boost) {
            if (mHolders[boost] > 0) return std::to_string(boost);
        }
        return "0";
    }
    void Restore(const std::string& saved) override {
        mHolders.fill(0);
        SysctlNode::Restore(saved);
    }
    bool IsCounted() const override { return true; }

  protected:
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

std::shared_ptr<Node> MakeNumberNode(Scan scan, std::shared_ptr<int64_t> value, TakeNumber take) {
    return std::make_shared<NumberNode>(scan, std::move(value), std::move(take));
}

std::shared_ptr<Node> MakeNumberNode(const NumberRule& rule) {
    return MakeNumberNode(
        rule.scan, std::make_shared<int64_t>(rule.initial),
        [rule](int64_t number) { return std::clamp(number, rule.low, rule.high); });
}

std::shared_ptr<Node> MakeSysctlNode(Ints initial, TakesInt takes) {
    const size_t count = initial.size();
    return std::make_shared<SysctlNumbersNode>(std::make_shared<Ints>(std::move(initial)), count,
                                               std::move(takes));
}

std::shared_ptr<Node> MakeCheckedSysctlNode(std::shared_ptr<Ints> ints, size_t count,
                                            TakesInt takes) {
    return std::make_shared<CheckedSysctlNode>(std::move(ints), count, std::move(takes));
}

std::shared_ptr<Node> MakeReadOnlyNode(std::function<std::string()> show,
                                       std::function<int()> readError) {
    return std::make_shared<ReadOnlyNode>(std::move(show), std::move(readError));
}

std::shared_ptr<Node> MakeSchedBoostNode() {
    return std::make_shared<SchedBoostNode>();
}

std::shared_ptr<Node> MakeUclampNode(const std::string& initial) {
    return std::make_shared<UclampNode>(initial);
}

std::shared_ptr<Node> MakeFreeNode(const std::string& text) {
    return std::make_shared<FreeNode>(text);
}

}  // namespace lab

#include "lab/phone/node_kinds.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <utility>

namespace lab {

namespace {

constexpr int64_t kU32Max = std::numeric_limits<uint32_t>::max();
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kSpaces = " \t\n\v\f\r";

// strtoll saturates, which is what a number of any length needs.
int64_t ToNumber(const std::string& digits) {
    return std::strtoll(digits.c_str(), nullptr, 10);
}

// kstrtouint: the whole text, an ending newline apart, is an unsigned 32-bit number.
std::optional<int64_t> ParseWholeNumber(std::string text) {
    if (text.ends_with('\n')) text.pop_back();
    if (text.starts_with('+')) text.erase(0, 1);
    if (text.empty() || text.find_first_not_of(kDigits) != std::string::npos) return std::nullopt;
    const int64_t value = ToNumber(text);
    if (value > kU32Max) return std::nullopt;
    return value;
}

std::optional<int64_t> Parse(Scan scan, const std::string& text) {
    return scan == Scan::kLeading ? ParseLeadingNumber(text) : ParseWholeNumber(text);
}

// Signed numbers with white space between them, as sysctl vectors are written.
std::optional<std::vector<int64_t>> ParseVector(const std::string& text) {
    std::vector<int64_t> numbers;
    std::istringstream input(text);
    for (std::string word; input >> word;) {
        const size_t digits = word.starts_with('-') ? 1 : 0;
        if (digits == word.size() || word.find_first_not_of(kDigits, digits) != std::string::npos) {
            return std::nullopt;
        }
        numbers.push_back(ToNumber(word));
    }
    return numbers;
}

class NumberNode : public Node {
  public:
    explicit NumberNode(const NumberRule& rule) : mRule(rule), mValue(rule.initial) {}

    std::string Show() const override { return std::to_string(mValue); }
    int Store(const std::string& text) override {
        const std::optional<int64_t> value = Parse(mRule.scan, text);
        if (!value) return EINVAL;
        mValue = std::clamp(*value, mRule.low, mRule.high);
        return 0;
    }
    void Restore(const std::string& saved) override {
        if (const auto value = ParseLeadingNumber(saved)) mValue = *value;
    }

  private:
    const NumberRule mRule;
    int64_t mValue;
};

class BoolNode : public Node {
  public:
    explicit BoolNode(bool initial) : mValue(initial) {}

    std::string Show() const override { return mValue ? "1" : "0"; }
    // As kstrtobool: the first letter decides, the second after an "o".
    int Store(const std::string& text) override {
        const std::string word = text.substr(0, 2) + "  ";
        const char first = static_cast<char>(std::tolower(static_cast<unsigned char>(word[0])));
        const char second = static_cast<char>(std::tolower(static_cast<unsigned char>(word[1])));
        const bool isOn = first == '1' || first == 'y' || (first == 'o' && second == 'n');
        const bool isOff = first == '0' || first == 'n' || (first == 'o' && second == 'f');
        if (!isOn && !isOff) return EINVAL;
        mValue = isOn;
        return 0;
    }
    void Restore(const std::string& saved) override { mValue = saved == "1"; }

  private:
    bool mValue;
};

class ChoiceNode : public Node {
  public:
    ChoiceNode(std::vector<int64_t> choices, int64_t initial)
        : mChoices(std::move(choices)), mValue(initial) {}

    std::string Show() const override { return std::to_string(mValue); }
    int Store(const std::string& text) override {
        const auto numbers = ParseVector(text);
        if (!numbers || numbers->size() != 1) return EINVAL;
        const int64_t value = numbers->front();
        if (std::find(mChoices.begin(), mChoices.end(), value) == mChoices.end()) return EINVAL;
        mValue = value;
        return 0;
    }
    void Restore(const std::string& saved) override {
        if (const auto value = ParseLeadingNumber(saved)) mValue = *value;
    }

  private:
    const std::vector<int64_t> mChoices;
    int64_t mValue;
};

class ReadOnlyNode : public Node {
  public:
    explicit ReadOnlyNode(std::function<std::string()> show) : mShow(std::move(show)) {}

    std::string Show() const override { return mShow(); }
    int Store(const std::string&) override { return EACCES; }
    void Restore(const std::string&) override {}
    bool IsReadOnly() const override { return true; }

  private:
    const std::function<std::string()> mShow;
};

class FreqLimitNode : public Node {
  public:
    FreqLimitNode(std::shared_ptr<FreqLimits> limits, Side side)
        : mLimits(std::move(limits)), mSide(side) {}

    std::string Show() const override {
        return std::to_string(mSide == Side::kMin ? mLimits->EffectiveMin()
                                                  : mLimits->EffectiveMax());
    }
    int Store(const std::string& text) override {
        const std::optional<int64_t> value = ParseLeadingNumber(text);
        if (!value) return EINVAL;
        Mine().program = *value;
        return 0;
    }
    std::string Save() const override {
        return std::to_string(mSide == Side::kMin ? mLimits->min.program : mLimits->max.program);
    }
    void Restore(const std::string& saved) override { Store(saved); }
    std::optional<int64_t>* HalRequest() override { return &Mine().hal; }

  private:
    FreqLimits::Requests& Mine() { return mSide == Side::kMin ? mLimits->min : mLimits->max; }

    const std::shared_ptr<FreqLimits> mLimits;
    const Side mSide;
};

class BusLimitNode : public Node {
  public:
    BusLimitNode(std::shared_ptr<BusLimits> limits, Side side)
        : mLimits(std::move(limits)), mSide(side) {}

    std::string Show() const override {
        return std::to_string(mSide == Side::kMin ? mLimits->min : mLimits->max);
    }
    int Store(const std::string& text) override {
        const std::optional<int64_t> value = ParseWholeNumber(text);
        if (!value) return EINVAL;
        if (mSide == Side::kMin) {
            mLimits->min = std::min(std::max(*value, mLimits->low), mLimits->max);
        } else {
            mLimits->max = std::max(std::min(*value, mLimits->high), mLimits->min);
        }
        return 0;
    }
    void Restore(const std::string& saved) override {
        const auto value = ParseLeadingNumber(saved);
        if (value) (mSide == Side::kMin ? mLimits->min : mLimits->max) = *value;
    }

  private:
    const std::shared_ptr<BusLimits> mLimits;
    const Side mSide;
};

class GpuLevelNode : public Node {
  public:
    GpuLevelNode(std::vector<int64_t> levelsMhz, int64_t initialMhz, int64_t hzPerUnit,
                 int noMatchError)
        : mLevelsMhz(std::move(levelsMhz)),
          mHzPerUnit(hzPerUnit),
          mNoMatchError(noMatchError),
          mMhz(initialMhz) {}

    std::string Show() const override { return std::to_string(mMhz * kHzPerMhz / mHzPerUnit); }
    int Store(const std::string& text) override {
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
    void Restore(const std::string& saved) override {
        if (const auto value = ParseWholeNumber(saved)) mMhz = *value * mHzPerUnit / kHzPerMhz;
    }

  private:
    static constexpr int64_t kHzPerMhz = 1'000'000;

    const std::vector<int64_t> mLevelsMhz;
    const int64_t mHzPerUnit;
    const int mNoMatchError;
    int64_t mMhz;
};

class SchedBoostNode : public Node {
  public:
    std::string Show() const override {
        for (size_t boost = 1; boost <= kBoosts; ++boost) {
            if (mHolders[boost] > 0) return std::to_string(boost);
        }
        return "0";
    }
    int Store(const std::string& text) override {
        const auto numbers = ParseVector(text);
        if (!numbers || numbers->size() != 1) return EINVAL;
        const int64_t value = numbers->front();
        const size_t boost = static_cast<size_t>(std::abs(value));
        if (boost > kBoosts) return EINVAL;
        if (value == 0) {
            mHolders.fill(0);
        } else if (value > 0) {
            ++mHolders[boost];
        } else if (mHolders[boost] > 0) {
            --mHolders[boost];
        }
        return 0;
    }
    void Restore(const std::string& saved) override {
        mHolders.fill(0);
        Store(saved);
    }
    bool IsCounted() const override { return true; }

  private:
    static constexpr size_t kBoosts = 3;

    std::array<int, kBoosts + 1> mHolders{};
};

class MigrateNode : public Node {
  public:
    MigrateNode(std::shared_ptr<MigrateMargins> margins, bool isUp)
        : mMargins(std::move(margins)), mIsUp(isUp) {}

    std::string Show() const override {
        const auto& mine = mIsUp ? mMargins->up : mMargins->down;
        return std::to_string(mine[0]) + "\t" + std::to_string(mine[1]);
    }
    int Store(const std::string& text) override {
        const auto numbers = ParseVector(text);
        if (!numbers || numbers->size() != mMargins->boundaries) return EINVAL;
        for (size_t i = 0; i < numbers->size(); ++i) {
            const int64_t value = (*numbers)[i];
            if (value < 1 || value > 100) return EINVAL;
            if (mIsUp ? value < mMargins->down[i] : value > mMargins->up[i]) return EINVAL;
        }
        Set(*numbers);
        return 0;
    }
    void Restore(const std::string& saved) override {
        const auto numbers = ParseVector(saved);
        if (numbers && numbers->size() <= MigrateMargins::kShown) Set(*numbers);
    }

  private:
    void Set(const std::vector<int64_t>& numbers) {
        auto& mine = mIsUp ? mMargins->up : mMargins->down;
        std::copy(numbers.begin(), numbers.end(), mine.begin());
    }

    const std::shared_ptr<MigrateMargins> mMargins;
    const bool mIsUp;
};

class UclampNode : public Node {
  public:
    explicit UclampNode(const std::string& initial) { Store(initial); }

    std::string Show() const override {
        if (mHundredths == kFull) return "max";
        const std::string decimals = std::to_string(100 + mHundredths % 100).substr(1);
        return std::to_string(mHundredths / 100) + "." + decimals;
    }
    int Store(const std::string& text) override {
        const size_t begin = text.find_first_not_of(kSpaces);
        if (begin == std::string::npos) return EINVAL;
        const std::string word = text.substr(begin, text.find_last_not_of(kSpaces) + 1 - begin);
        if (word == "max") {
            mHundredths = kFull;
            return 0;
        }
        char* end = nullptr;
        const double percent = std::strtod(word.c_str(), &end);
        const bool isPlain = word.find_first_not_of("+-.0123456789") == std::string::npos;
        if (!isPlain || end != word.c_str() + word.size()) return EINVAL;
        if (percent < 0 || percent > 100) return ERANGE;
        mHundredths = std::llround(percent * 100);
        return 0;
    }
    void Restore(const std::string& saved) override { Store(saved); }

  private:
    static constexpr int64_t kFull = 10'000;

    int64_t mHundredths = 0;
};

class FreeNode : public Node {
  public:
    explicit FreeNode(std::string text) : mText(std::move(text)) {}

    std::string Show() const override { return mText; }
    int Store(const std::string& text) override {
        mText = text;
        return 0;
    }
    void Restore(const std::string& saved) override { mText = saved; }

  private:
    std::string mText;
};

}  // namespace

std::optional<int64_t> ParseLeadingNumber(const std::string& text) {
    const size_t begin = text.find_first_not_of(kSpaces);
    if (begin == std::string::npos || kDigits.find(text[begin]) == std::string_view::npos) {
        return std::nullopt;
    }
    return ToNumber(text.substr(begin));
}

int64_t FreqLimits::EffectiveMax() const {
    int64_t value = zeroLiftsMax && max.program == 0 ? high : max.program;
    if (max.hal) value = std::min(value, *max.hal);
    return std::clamp(value, low, high);
}

int64_t FreqLimits::EffectiveMin() const {
    int64_t value = min.program;
    if (min.hal) value = std::max(value, *min.hal);
    return std::min(std::clamp(value, low, high), EffectiveMax());
}

std::shared_ptr<Node> MakeNumberNode(const NumberRule& rule) {
    return std::make_shared<NumberNode>(rule);
}

std::shared_ptr<Node> MakeBoolNode(bool initial) {
    return std::make_shared<BoolNode>(initial);
}

std::shared_ptr<Node> MakeChoiceNode(std::vector<int64_t> choices, int64_t initial) {
    return std::make_shared<ChoiceNode>(std::move(choices), initial);
}

std::shared_ptr<Node> MakeReadOnlyNode(std::function<std::string()> show) {
    return std::make_shared<ReadOnlyNode>(std::move(show));
}

std::shared_ptr<Node> MakeFreqLimitNode(std::shared_ptr<FreqLimits> limits, Side side) {
    return std::make_shared<FreqLimitNode>(std::move(limits), side);
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

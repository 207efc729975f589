#include "lab/phone/freq_limits.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "lab/phone/kernel_text.h"
#include "lab/phone/node_kinds.h"

namespace lab {

namespace {

// A request of this value is none.
constexpr int32_t kDefaultRequest = -1;
constexpr int32_t kNoMaximum = std::numeric_limits<int32_t>::max();
constexpr int64_t kHzPerKhz = 1000;

// The kernel keeps requests in 32 bits and cuts off what is above.
int32_t ToRequest(uint64_t value) {
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

int32_t NoRequest(Side side) {
    return side == Side::kMin ? 0 : kNoMaximum;
}

class FreqLimitNode : public SysfsNode {
  public:
    FreqLimitNode(std::shared_ptr<FreqLimits> limits, Side side)
        : mLimits(std::move(limits)), mSide(side) {}

    std::string Show() const override { return std::to_string(mLimits->Show(mSide)); }
    int ReadError() const override { return mLimits->ReadError(); }
    std::string Save() const override { return mLimits->Taken(mSide); }
    void Restore(const std::string& saved) override { mLimits->Take(mSide, saved); }
    bool KeepsRequests() const override { return true; }
    std::optional<int64_t> HalRequest() const override { return mLimits->Hal(mSide); }
    void SetHalRequest(std::optional<int64_t> request) override { mLimits->SetHal(mSide, request); }

  protected:
    int Take(const std::string& text) override { return mLimits->Take(mSide, text); }

  private:
    const std::shared_ptr<FreqLimits> mLimits;
    const Side mSide;
};

}  // namespace

void FreqLimits::SetHal(Side side, std::optional<int64_t> request) {
    Of(side).hal = request;
    Follow();
}

int32_t FreqLimits::Strictest(Side side) const {
    const int32_t program = Of(side).program;
    if (!Of(side).hal) return program;
    const int32_t hal = ToRequest(static_cast<uint64_t>(ToKhz(side, *Of(side).hal)));
    return side == Side::kMin ? std::max(program, hal) : std::min(program, hal);
}

CpuLimits::CpuLimits(std::vector<int64_t> khz, const KernelRules& rules)
    : mKhz(std::move(khz)), mRules(rules) {
    Of(Side::kMin).program = ToRequest(static_cast<uint64_t>(mKhz.front()));
    Of(Side::kMax).program = ToRequest(static_cast<uint64_t>(mKhz.back()));
    Follow();
}

int CpuLimits::Take(Side side, const std::string& text) {
    if (!mIsOnline) return mRules.offlineWriteError;
    const std::optional<uint64_t> number = ScanNumber(text);
    if (!number) return EINVAL;
    const int32_t request = ToRequest(*number);
    const bool isNegative = request < 0 && request != kDefaultRequest;
    if (mRules.refusesNegativeRequest && isNegative) return EINVAL;
    Of(side).program = request == kDefaultRequest ? NoRequest(side) : request;
    Follow();
    return 0;
}

std::string CpuLimits::Taken(Side side) const {
    return std::to_string(static_cast<uint32_t>(Of(side).program));
}

void CpuLimits::SetOnline(bool isOnline) {
    mIsOnline = isOnline;
    Follow();
}

int64_t CpuLimits::Current() const {
    return *std::lower_bound(mKhz.begin(), std::prev(mKhz.end()), mShownMin);
}

void CpuLimits::Follow() {
    if (!mIsOnline) return;
    const auto effective = [this](Side side) {
        // Negative ones count as the strictest maximum, and then as a very high frequency.
        const int64_t value = static_cast<uint32_t>(Strictest(side));
        return std::clamp(value, mKhz.front(), mKhz.back());
    };
    mShownMax = effective(Side::kMax);
    mShownMin = std::min(effective(Side::kMin), mShownMax);
    // The cluster must have a step to run at: where none lies between, the ceiling gives way.
    const int64_t step = Current();
    mShownMax = std::max(mShownMax, step);
    if (!mRules.snapsCpuLimits) return;
    mShownMin = Current();
    mShownMax = *std::prev(std::upper_bound(mKhz.begin(), mKhz.end(), mShownMax));
}

DevfreqLimits::DevfreqLimits(int64_t lowHz, int64_t highHz)
    : mLowHz(static_cast<uint64_t>(lowHz)), mHighHz(static_cast<uint64_t>(highHz)) {
    Of(Side::kMin).program = ToRequest(mLowHz / kHzPerKhz);
    Of(Side::kMax).program = ToRequest(mHighHz / kHzPerKhz);
}

int DevfreqLimits::Take(Side side, const std::string& text) {
    const std::optional<uint64_t> number = ScanNumber(text);
    if (!number) return EINVAL;
    const uint64_t up = side == Side::kMax && *number % kHzPerKhz != 0 ? 1 : 0;
    int32_t request = ToRequest(*number / kHzPerKhz + up);
    if (request == kDefaultRequest || (side == Side::kMax && *number == 0)) {
        request = NoRequest(side);
    }
    Of(side).program = request;
    return 0;
}

std::string DevfreqLimits::Taken(Side side) const {
    const int32_t request = Of(side).program;
    if (request == NoRequest(side)) return "0";
    return std::to_string(int64_t{static_cast<uint32_t>(request)} * kHzPerKhz);
}

int64_t DevfreqLimits::ToKhz(Side side, int64_t hal) const {
    return (side == Side::kMin ? hal : hal + kHzPerKhz - 1) / kHzPerKhz;
}

int64_t DevfreqLimits::Show(Side side) const {
    // Negative ones wrap to what is above every table.
    const auto requested = [this](Side end) {
        return static_cast<uint64_t>(Strictest(end) * kHzPerKhz);
    };
    const uint64_t max = std::min(mHighHz, requested(Side::kMax));
    const uint64_t min = std::min(std::max(mLowHz, requested(Side::kMin)), max);
    return static_cast<int64_t>(side == Side::kMin ? min : max);
}

std::shared_ptr<Node> MakeFreqLimitNode(std::shared_ptr<FreqLimits> limits, Side side) {
    return std::make_shared<FreqLimitNode>(std::move(limits), side);
}

}  // namespace lab

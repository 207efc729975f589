// Frequency limits as the kernel keeps them: requests of several parties on each end of a range,
// and what follows from all of them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lab/phone/node_rules.h"

namespace lab {

enum class Side : uint8_t { kMin, kMax };

// The two ends of a range. A program's request on an end is what it has written; the perf HAL has
// one of its own beside it. The lowest maximum and the highest minimum count.
class FreqLimits {
  public:
    virtual ~FreqLimits() = default;

    // The effective end, in the node's unit.
    virtual int64_t Show(Side side) const = 0;

    // Takes a program's text as its request on the end. Returns 0 or the errno.
    virtual int Take(Side side, const std::string& text) = 0;

    // A program's request as a text that Take turns into the same request.
    virtual std::string Taken(Side side) const = 0;

    // The HAL's request, in the node's unit; none takes it back.
    std::optional<int64_t> Hal(Side side) const { return Of(side).hal; }
    void SetHal(Side side, std::optional<int64_t> request);

    // The errno with which a read of the range's nodes fails, or 0.
    virtual int ReadError() const { return 0; }

  protected:
    struct Requests {
        int32_t program = 0;         // in the unit of requests: kHz
        std::optional<int64_t> hal;  // in the node's
    };

    const Requests& Of(Side side) const { return side == Side::kMin ? mMin : mMax; }
    Requests& Of(Side side) { return side == Side::kMin ? mMin : mMax; }

    // The request that counts.
    int32_t Strictest(Side side) const;

    // A HAL's request in kHz.
    virtual int64_t ToKhz(Side side, int64_t hal) const = 0;

    // Called when the HAL's request has changed.
    virtual void Follow() {}

  private:
    Requests mMin;
    Requests mMax;
};

// A CPU cluster's policy, in kHz. What it shows follows the requests while a CPU of the cluster
// runs; while none does, it stays, and a program's requests are refused.
class CpuLimits : public FreqLimits {
  public:
    // `khz` is the table, ascending.
    CpuLimits(std::vector<int64_t> khz, const KernelRules& rules);

    int64_t Show(Side side) const override { return side == Side::kMin ? mShownMin : mShownMax; }
    int Take(Side side, const std::string& text) override;
    std::string Taken(Side side) const override;
    int ReadError() const override { return mIsOnline ? 0 : mRules.offlineReadError; }

    // Says whether a CPU of the cluster runs.
    void SetOnline(bool isOnline);

    // Where an idle cluster stays: the step at its floor.
    int64_t Current() const;

  private:
    int64_t ToKhz(Side, int64_t hal) const override { return hal; }
    void Follow() override;

    const std::vector<int64_t> mKhz;
    const KernelRules mRules;
    bool mIsOnline = true;
    int64_t mShownMin = 0;
    int64_t mShownMax = 0;
};

// A devfreq device, in Hz; its requests are in kHz, a minimum rounded down and a maximum up. A
// maximum of 0 is none.
class DevfreqLimits : public FreqLimits {
  public:
    DevfreqLimits(int64_t lowHz, int64_t highHz);

    int64_t Show(Side side) const override;
    int Take(Side side, const std::string& text) override;
    std::string Taken(Side side) const override;

  private:
    int64_t ToKhz(Side side, int64_t hal) const override;

    const uint64_t mLowHz;
    const uint64_t mHighHz;
};

// The node of one end.
std::shared_ptr<Node> MakeFreqLimitNode(std::shared_ptr<FreqLimits> limits, Side side);

}  // namespace lab

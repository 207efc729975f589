#include "lab/check/scenario_check.h"

#include <fmt/format.h>

#include "lab/hal/step_table.h"

namespace lab {
namespace {

// The frequencies that the tag takes, in its unit; nothing for one that takes none, or any.
std::optional<StepTable> StepsOfTag(const TagFacts& facts, int tag, const DeviceProfile& device,
                                    Layout layout) {
    if (facts.bound != Bound::kFloor && facts.bound != Bound::kCeiling) return std::nullopt;
    if (facts.unit != Unit::kKhz && facts.unit != Unit::kHz) return std::nullopt;
    const std::optional<int> opcode = FindTagOpcode(tag, layout);
    if (!opcode) return std::nullopt;
    for (const Drive& drive : DrivesOf(static_cast<uint32_t>(*opcode), device)) {
        if (std::optional<StepTable> table = StepsOf(drive, device)) {
            return facts.unit == Unit::kHz ? GpuStepsHz(device) : table;
        }
    }
    return std::nullopt;
}

class SlipFinder {
  public:
    SlipFinder(const std::string& file, const DeviceProfile& device, Layout layout)
        : mFile(file), mDevice(device), mLayout(layout) {}

    void Find(const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            if (!step.device.empty() && step.device != mDevice.name) continue;
            if (const auto* repeat = std::get_if<Repeat>(&step.request)) {
                Find(repeat->steps);
            } else if (const auto* limits = std::get_if<SetLimits>(&step.request)) {
                for (const TagValue& pair : limits->tags) Check(step.line, pair);
            } else if (const auto* level = std::get_if<SetSchedLevel>(&step.request)) {
                for (const TagValue& pair : level->tags) Check(step.line, pair);
            }
        }
    }

    std::vector<std::string> Take() { return std::move(mTexts); }

  private:
    void Check(int line, const TagValue& pair) {
        if (pair.value <= 0) return;  // lifts the limit
        const TagFacts* facts = FindTagFacts(pair.tag, mLayout);
        if (facts == nullptr) return;
        const auto table = StepsOfTag(*facts, pair.tag, mDevice, mLayout);
        if (!table) return;
        const auto fault =
            FindRangeFault(*table, {std::string(facts->name), "tag", pair.value,
                                    UnitName(facts->unit), facts->bound == Bound::kFloor});
        if (!fault || !fault->isOtherUnit) return;
        mTexts.push_back(fmt::format("{}:{}: {}; {}", mFile, line, fault->where, fault->advice));
    }

    const std::string& mFile;
    const DeviceProfile& mDevice;
    const Layout mLayout;
    std::vector<std::string> mTexts;
};

}  // namespace

std::vector<std::string> FindUnitSlips(const std::vector<Step>& steps, const std::string& file,
                                       const DeviceProfile& device, Layout layout) {
    SlipFinder finder(file, device, layout);
    finder.Find(steps);
    return finder.Take();
}

}  // namespace lab

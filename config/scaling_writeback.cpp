#include "config/scaling_writeback.h"

namespace tarquel {

namespace {

// What the frequency manager answers for a cluster's thermal ceiling.
constexpr int kNoThermalCeiling = 0;
constexpr int kNoValidCeiling = -1;

// Numbers of breakthroughs wrap around.
bool IsLater(uint32_t number, uint32_t than) {
    return static_cast<int32_t>(number - than) > 0;
}

}  // namespace

// The last cluster's default is the prime record's. With two clusters nothing fills that record: 0
// is written, of which the kernel makes the lowest step, until a request sets the ceiling.
ScalingWriteback::ScalingWriteback(Tunables& tunables, const ControlState& control,
                                   const QcomFreqManager& freqManager)
    : mTunables(tunables),
      mControl(control),
      mFreqManager(freqManager),
      mCeilings{{{*this, kTagLittleMax, tunables.records.little.cpuinfoMaxFreq},
                 {*this, kTagMiddleMax, tunables.records.big.cpuinfoMaxFreq},
                 {*this, kTagLastMax, tunables.records.prime.cpuinfoMaxFreq}}} {}

ScalingWriteback::Ceiling* ScalingWriteback::Find(int tag) {
    for (Ceiling& ceiling : mCeilings) {
        if (ceiling.tag == tag) return &ceiling;
    }
    return nullptr;
}

std::optional<RequestGate::Turn> ScalingWriteback::TakeTurn(int tag) {
    Ceiling* const ceiling = Find(tag);
    if (ceiling == nullptr) return std::nullopt;
    return std::optional<RequestGate::Turn>(std::in_place, ceiling->gate);
}

void ScalingWriteback::MarkWritten(int tag) {
    if (Ceiling* const ceiling = Find(tag)) ceiling->isWritten = true;
}

void ScalingWriteback::WriteAllScaling() {
    for (Ceiling& ceiling : mCeilings) {
        const RequestGate::Turn turn(ceiling.gate);
        if (MayWrite(0)) {
            Write(ceiling);
        } else {
            ceiling.isWritten = false;
        }
    }
}

void ScalingWriteback::RestoreCeilings(uint32_t number) {
    for (Ceiling& ceiling : mCeilings) {
        uint32_t former = ceiling.endedBreakthrough;
        while (IsLater(number, former) &&
               !ceiling.endedBreakthrough.compare_exchange_weak(former, number)) {
        }
        ceiling.gate.Post(ceiling.restore);
    }
}

// False while the performance policy owns the limits, and while a breakthrough lifts them that is
// not the one whose end is being served (0: none is).
bool ScalingWriteback::MayWrite(uint32_t endedBreakthrough) const {
    if (mControl.mPerf != 0) return false;
    const uint32_t running = mControl.mBreakThrough;
    if (running == 0) return true;
    return endedBreakthrough != 0 && !IsLater(running, endedBreakthrough);
}

void ScalingWriteback::Restore(Ceiling& ceiling) {
    if (MayWrite(ceiling.endedBreakthrough)) Write(ceiling);
}

void ScalingWriteback::Write(Ceiling& ceiling) {
    const int thermalKhz = mFreqManager.GetThermalConfig(ceiling.tag);
    const bool isWritten = ceiling.isWritten.exchange(false);
    if (thermalKhz == kNoValidCeiling || isWritten) return;
    mTunables.Write(ceiling.tag, thermalKhz == kNoThermalCeiling ? ceiling.defaultKhz : thermalKhz);
}

}  // namespace tarquel

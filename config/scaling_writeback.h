// Writes the thermal ceilings, or the hardware maximum where there is none, straight into each
// cluster's scaling_max_freq.
#pragma once

#include <array>
#include <atomic>
#include <optional>

#include "base/tags.h"
#include "config/control_state.h"
#include "config/request_gate.h"
#include "freq/freq_manager.h"
#include "nodes/tunables.h"

namespace tarquel {

// A request and the end of a breakthrough may both write a cluster's ceiling. Whoever decides what
// to write and writes it does so in the ceiling's turn, so that the later decision is also what
// stays in the node. Threads: any; docs/threads.md.
class ScalingWriteback {
  public:
    ScalingWriteback(Tunables& tunables, const ControlState& control,
                     const QcomFreqManager& freqManager);

    // The turn of the ceiling `tag`, held while the result lives; nothing for a tag without a
    // write-back. A thread holds one at a time, and calls neither the HAL nor the server meanwhile.
    std::optional<RequestGate::Turn> TakeTurn(int tag);

    // Says that the ceiling of `tag` was just written, so that the next write-back leaves it alone,
    // once. Tags without a write-back are ignored. Called in the ceiling's turn.
    void MarkWritten(int tag);

    // Writes every cluster's ceiling but those marked; clears all marks. For the end of a request:
    // a breakthrough that began during it keeps its ceilings lifted, and writes them at its own
    // end.
    void WriteAllScaling();

    // The same for the end of breakthrough `number`; one that began since is left alone. Waits for
    // nobody: a ceiling that is just being written is written again by whoever does, at once.
    void RestoreCeilings(uint32_t number);

  private:
    struct Ceiling {
        ScalingWriteback& writeback;
        const int tag;
        const int32_t& defaultKhz;
        RequestGate gate{};
        std::atomic<bool> isWritten{false};
        std::atomic<uint32_t> endedBreakthrough{0};  // the latest one that restores it
        const RequestGate::Job restore{[](void* self) noexcept {
                                           auto& ceiling = *static_cast<Ceiling*>(self);
                                           ceiling.writeback.Restore(ceiling);
                                       },
                                       this};
    };

    Ceiling* Find(int tag);
    bool MayWrite(uint32_t endedBreakthrough) const;
    // Called in the ceiling's turn.
    void Restore(Ceiling& ceiling);
    void Write(Ceiling& ceiling);

    Tunables& mTunables;
    const ControlState& mControl;
    const QcomFreqManager& mFreqManager;
    std::array<Ceiling, kCpuDomains> mCeilings;
};

}  // namespace tarquel

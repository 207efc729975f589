#include "nodes/scaling_writeback.h"

#include "freq/freq_manager.h"
#include "platform/log.h"

namespace tarquel {

namespace {

// What the frequency manager answers for a cluster's thermal ceiling.
constexpr int kNoThermalCeiling = 0;
constexpr int kNoValidCeiling = -1;

}  // namespace

void ScalingWriteback::InitIsThermalSetConfig() {
    for (Flag& flag : mIsThermalSetConfig) flag.isWritten = false;
}

void ScalingWriteback::MarkWritten(int tag) {
    for (Flag& flag : mIsThermalSetConfig) {
        if (flag.tag == tag) flag.isWritten = true;
    }
}

void ScalingWriteback::WriteAllScaling() {
    if (mFreqManager == nullptr) {
        TARQUEL_LOGE("tarquel: mFreqManagerPtr failed!\n");
        return;
    }
    // All three are asked for before anything is written.
    const int little = mFreqManager->GetThermalConfig(1);
    const int middle = mFreqManager->GetThermalConfig(4);
    const int last = mFreqManager->GetThermalConfig(7);
    WriteCeiling(mIsThermalSetConfig[0], little, mRecords.little.cpuinfoMaxFreq);
    WriteCeiling(mIsThermalSetConfig[1], middle, mRecords.big.cpuinfoMaxFreq);
    // Meant: always the prime record, also with two clusters, where it is 0.
    WriteCeiling(mIsThermalSetConfig[2], last, mRecords.prime.cpuinfoMaxFreq);
    InitIsThermalSetConfig();
}

void ScalingWriteback::WriteCeiling(const Flag& flag, int thermalKhz, int defaultKhz) {
    if (thermalKhz == kNoValidCeiling || flag.isWritten) return;
    mIo.WriteNode(mNodes.Get(flag.tag), thermalKhz == kNoThermalCeiling ? defaultKhz : thermalKhz);
}

}  // namespace tarquel

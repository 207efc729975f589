// The operations that the policy server calls on the platform's adapter.
//
// The order of the virtual operations is the ABI. The server may call them from several threads.
// Unless an operation says otherwise, 0 is success and a negative result is a failure. A null
// pointer where a record or an output belongs, a count that no request has and a list that is
// shorter than it claims to be are refused: a log line, the operation's failure (its only result
// where it has but one), nothing changed.
#pragma once

#include <map>
#include <string>

struct Action;

class PerfAdapter {
  public:
    PerfAdapter() = default;
    virtual ~PerfAdapter() = default;

    PerfAdapter(const PerfAdapter&) = delete;
    PerfAdapter& operator=(const PerfAdapter&) = delete;

    // Turns debug logging and tracing on or off. 0; -1 is of adapters without a frequency manager.
    virtual int SetDebug(bool on) = 0;

    // Sets the state bits that actions' state masks are tested against. Always 0.
    virtual int SetState(int state) = 0;

    // Runs the action chain that begins with `first`.
    //   payload  payloadNum ints, null for none; {0} starts an event, {-1} ends it
    //   Returns  0; -1 when any action of the chain failed. A lock that the HAL refuses is no
    //   failure
    virtual int DoAction(const Action& first, unsigned int payloadNum, const int* payload) = 0;

    // Patches the task id of `msg` ("...|targetPid=1234|...") into the chain. Always 0.
    virtual int DoAddTaskBoostInfo(Action& first, std::string msg) = 0;

    // Completes the chain with boost frequencies while a thermal level is in force. Always 0.
    virtual int DoAddScalingInfo(Action& first) = 0;

    // Applies the values `configs` to the tunables `tags` on behalf of a client or scene command.
    //   tagLen   entries of both arrays
    //   configs  kHz for CPU, Hz for GPU, else the tunable's own unit; 0 lifts a limit
    virtual int DoPerfSetConfig(int clientId, int tagLen, const int* tags, const int* configs) = 0;

    // Reads the present values of `tags` into `values`; a tag that cannot be read leaves its slot
    // as it was. Always 0.
    virtual int DoPerfGetConfig(int tagLen, const int* tags, int* values) = 0;

    // Sets "mPB_Prior" (performance mode) and "mTB_Prior" (thermal level) in `status`. 0.
    virtual int GetPerfEventStatus(std::map<std::string, int>& status) = 0;

    // No effect on this platform. Always 0.
    virtual int DoSchedLevelAction(int level, int count, const int* tags, const int* values) = 0;

    // Lists the frequency ceilings of an action.
    //   release      not 0: list them all with the value 0
    //   tags, freqs  room for 133 entries each
    //   Returns      the number of entries written; -1 when an output is null or the list too short
    virtual int GetPerfTagValue(const Action& action, int release, int* tags, int* freqs) = 0;

    // No effect on this platform. Always 0.
    virtual int DoProbeAffinity(unsigned int mask, int pid) = 0;

    // Sets `type` to 0. 0.
    virtual int GetChipPlatformType(const Action& action, int& type) = 0;

    // Counts one boost of `cmdId` at time `now` (the unit of the configured period).
    virtual void UpdateBoostCount(int cmdId, long now) = 0;

    // True unless `cmdId` has used up its boosts of the running period.
    virtual bool CanThermalBoost(int cmdId) = 0;
};

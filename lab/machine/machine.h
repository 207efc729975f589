// The machine beneath the lab, where it has nodes that the phone has too: every write goes to the
// model and to the machine, a read shows what the machine has, and the two are compared.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "lab/machine/kernel_under_test.h"
#include "lab/phone/node_rules.h"

namespace lab {

// System calls past the phone: what the machine's own kernel does. Results as the kernel's: the
// negative errno for a failure.
namespace machine_calls {
int Open(const std::string& path, int flags);
void Close(int fd);
}  // namespace machine_calls

// A file of the machine's kernel, opened when it is first needed and kept: what it takes and gives
// is the same as with an opening each time.
class MachineFile {
  public:
    explicit MachineFile(std::string path) : mPath(std::move(path)) {}
    ~MachineFile();

    MachineFile(const MachineFile&) = delete;
    MachineFile& operator=(const MachineFile&) = delete;

    const std::string& Path() const { return mPath; }

    // Returns how many bytes were taken, or the negative errno.
    ssize_t Write(const std::string& text, size_t offset = 0);

    // What a read gives, without the newline. Returns 0 or the errno.
    int Read(std::string& text);

  private:
    const std::string mPath;
    int mReading = -1;
    int mWriting = -1;
};

// One phone at a time has its nodes.
class Machine {
  public:
    // Differences are told on `report`, one a line.
    Machine(KernelUnderTest kernel, std::ostream& report);
    ~Machine();

    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    // Lays out a phone's nodes, those that the machine has as the machine's: as it has booted when
    // this is the first phone, else brought back to that. Throws std::runtime_error when the
    // machine lacks a node that its kernel must have, or the means for the perf HAL's requests.
    std::vector<NamedNode> LayOut(const DeviceProfile& profile);

    // The nodes of the model alone, by the rules of the machine's kernel.
    std::vector<NamedNode> LayOutModel(const DeviceProfile& profile) const;

    // The machine's name for a node of the phone; none: the machine does not have it.
    std::optional<std::string> PathOf(const std::string& path) const;

    // Begins a part of its own, of which only the first differences are told: what follows from one
    // is no news. `where` says where the phone is.
    void Begin(std::function<std::string()> where);

    // Compares every node.
    void CompareAll(const std::string& after);

    // Tells a difference.
    void Differ(const std::string& what, const std::string& kernels, const std::string& models);

    struct Counts {
        size_t nodes = 0;
        size_t writes = 0;
        size_t comparisons = 0;
        size_t differences = 0;
    };
    const Counts& Count() const { return mCounts; }

  private:
    class Double;
    friend class Double;

    std::optional<std::string> RealPath(const std::string& path) const;
    void AddStandIns(std::vector<NamedNode>& nodes) const;
    void CompareNames(const Double& node);
    void CompareCpus(const DeviceProfile& profile);
    void Boot();
    void SetDelay(const std::vector<std::string>& names);
    ssize_t Judge(const Double& node, const std::string& written, ssize_t kernels, ssize_t models);
    // Compares what a write to that node may change; every node for null.
    void CompareFollowers(const Double* written, const std::string& after);
    void Compare(Double& node, const std::string& after);

    const KernelUnderTest mKernel;
    std::ostream& mReport;
    std::function<std::string()> mWhere;
    std::vector<std::shared_ptr<Double>> mDoubles;  // of the phone that is alive
    std::string mDevfreq;                           // the folder of the device for the GPU
    // What the module of kernel/hal_requests offers.
    MachineFile mHalMin;
    MachineFile mHalMax;
    MachineFile mDelay;
    MachineFile mSettle;
    int mDelayMs = 0;
    bool mHasBooted = false;
    size_t mToldOfPart = 0;
    Counts mCounts;
};

}  // namespace lab

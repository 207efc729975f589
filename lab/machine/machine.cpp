#include "lab/machine/machine.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>

#include "lab/phone/node_kinds.h"
#include "lab/phone/phone.h"

namespace lab {

namespace {

using std::chrono::milliseconds;

constexpr const char* kDevfreqClass = "/sys/class/devfreq";
const std::string kGpuFolder = "/sys/class/kgsl/kgsl-3d0/devfreq/";
const std::string kPolicies = "/sys/devices/system/cpu/cpufreq/";
const std::string kHalFolder = "/sys/kernel/lab_hal/";

// How long a node may take to follow before it counts as different, and how many differences there
// may be until the rest is not waited for.
constexpr milliseconds kPatience{5000};
constexpr milliseconds kLittlePatience{50};
constexpr size_t kManyDifferences = 4;

constexpr int64_t kHzPerKhz = 1000;

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text.substr(0, 60)) {
        if (c == '\n') {
            quoted += "\\n";
        } else if (static_cast<unsigned char>(c) < ' ') {
            quoted += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        } else {
            quoted += c;
        }
    }
    return quoted + (text.size() > 60 ? "...'" : "'");
}

std::string ErrorText(int error) {
    const char* const name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

std::string ResultText(ssize_t result) {
    if (result < 0) return ErrorText(static_cast<int>(-result));
    return fmt::format("{} bytes taken", result);
}

std::string ReadText(int error, const std::string& value) {
    return error != 0 ? ErrorText(error) + " when read" : Quoted(value);
}

}  // namespace

namespace machine_calls {

int Open(const std::string& path, int flags) {
    const long fd = syscall(SYS_openat, AT_FDCWD, path.c_str(), flags | O_CLOEXEC, 0666);
    return fd < 0 ? -errno : static_cast<int>(fd);
}

void Close(int fd) {
    syscall(SYS_close, fd);
}

}  // namespace machine_calls

MachineFile::~MachineFile() {
    for (const int fd : {mReading, mWriting}) {
        if (fd >= 0) machine_calls::Close(fd);
    }
}

ssize_t MachineFile::Write(const std::string& text, size_t offset) {
    if (mWriting < 0) mWriting = machine_calls::Open(mPath, O_WRONLY);
    if (mWriting < 0) return mWriting;
    const long taken = syscall(SYS_pwrite64, mWriting, text.data(), text.size(), offset);
    return taken < 0 ? -errno : taken;
}

int MachineFile::Read(std::string& text) {
    text.clear();
    if (mReading < 0) mReading = machine_calls::Open(mPath, O_RDONLY);
    if (mReading < 0) return -mReading;
    std::array<char, 256> line;
    const long length = syscall(SYS_pread64, mReading, line.data(), line.size(), 0);
    if (length < 0) return errno;
    text.assign(line.data(), static_cast<size_t>(length));
    if (text.ends_with('\n')) text.pop_back();
    return 0;
}

// A node of the model and the machine's own.
class Machine::Double : public Node {
  public:
    Double(Machine& machine, NamedNode named, std::string path)
        : mMachine(machine),
          mNames(std::move(named.names)),
          mModel(std::move(named.node)),
          mFile(std::move(path)) {}

    std::string Show() const override { return mShown; }
    int ReadError() const override { return mReadError; }
    ssize_t Store(const std::string& text, size_t offset) override {
        mMachine.SetDelay(mNames);
        const std::string written =
            fmt::format("{} <- {}{}", Path(), Quoted(text),
                        offset > 0 ? fmt::format(" at byte {}", offset) : "");
        const ssize_t kernels = mFile.Write(text, offset);
        const ssize_t models = mModel->Store(text, offset);
        return mMachine.Judge(*this, written, kernels, models);
    }
    std::string Save() const override { return mModel->Save(); }
    void Restore(const std::string& saved) override {
        ++mMachine.mCounts.writes;
        mModel->Restore(saved);
        // What the model takes as its state, also where it is not what was said.
        mFile.Write(mModel->Save());
        mMachine.CompareFollowers(this, fmt::format("{} <- {} again", Path(), Quoted(saved)));
    }
    bool IsReadOnly() const override { return mModel->IsReadOnly(); }
    bool IsCounted() const override { return mModel->IsCounted(); }
    bool KeepsRequests() const override { return mModel->KeepsRequests(); }
    std::optional<int64_t> HalRequest() const override { return mModel->HalRequest(); }
    void SetHalRequest(std::optional<int64_t> request) override {
        mMachine.SetDelay(mNames);
        mModel->SetHalRequest(request);
        const std::string text = HalText(request);
        const ssize_t taken = HalFile().Write(text);
        const std::string written = fmt::format("the HAL's request {} on {}", Quoted(text), Path());
        mMachine.Judge(*this, written, taken, static_cast<ssize_t>(text.size()));
    }

    const std::vector<std::string>& Names() const { return mNames; }
    const std::string& Path() const { return mFile.Path(); }
    MachineFile& File() { return mFile; }
    const Node& Model() const { return *mModel; }

    bool IsConstant() const { return Path().find("/cpuinfo_") != std::string::npos; }

    // A CPU's coming and going shows in its whole policy.
    bool MayChange(const Double& other) const {
        if (Path().ends_with("/online")) return true;
        return !other.IsConstant() && FolderOf(Path()) == FolderOf(other.Path());
    }

    // Reads the machine's node.
    void Look() { mReadError = mFile.Read(mShown); }
    bool IsAsModel() const {
        return mReadError == mModel->ReadError() && (mReadError != 0 || mShown == mModel->Show());
    }

  private:
    bool IsGpu() const { return mNames.front().starts_with(kGpuFolder); }
    bool IsMin() const { return Path().find("min_freq") != std::string::npos; }
    MachineFile& HalFile() const { return IsMin() ? mMachine.mHalMin : mMachine.mHalMax; }

    // "policy4 2112000", "gpu 500000" (kHz), "gpu none"
    std::string HalText(std::optional<int64_t> request) const {
        const std::string policy = std::filesystem::path(Path()).parent_path().filename();
        const std::string device = IsGpu() ? "gpu" : policy;
        if (!request) return device + " none";
        const int64_t up = IsMin() ? 0 : kHzPerKhz - 1;
        return fmt::format("{} {}", device, IsGpu() ? (*request + up) / kHzPerKhz : *request);
    }

    Machine& mMachine;
    const std::vector<std::string> mNames;
    const std::shared_ptr<Node> mModel;
    MachineFile mFile;
    std::string mShown;
    int mReadError = 0;
};

Machine::Machine(KernelUnderTest kernel, std::ostream& report)
    : mKernel(std::move(kernel)),
      mReport(report),
      mHalMin(kHalFolder + "min"),
      mHalMax(kHalFolder + "max"),
      mDelay(kHalFolder + "delay_ms"),
      mSettle(kHalFolder + "settle") {}

Machine::~Machine() = default;

// The family to which a node of the phone belongs on a machine decides where the machine has it.
std::optional<std::string> Machine::RealPath(const std::string& path) const {
    const std::string name = path.substr(path.rfind('/') + 1);
    const auto has = [this](const char* family) { return mKernel.has.contains(family); };
    const bool isPolicys = path.starts_with(kPolicies) &&
                           (name.starts_with("scaling_") || name.starts_with("cpuinfo_"));
    if (isPolicys && has("cpufreq")) return path;
    if (name == "online" && has("online")) return path;
    if (path.starts_with(kGpuFolder) && has("devfreq")) return mDevfreq + "/" + name;
    if (path.starts_with("/dev/cpuctl/") && has("uclamp")) return path;
    return std::nullopt;
}

std::optional<std::string> Machine::PathOf(const std::string& path) const {
    for (const auto& node : mDoubles) {
        const auto& names = node->Names();
        if (std::find(names.begin(), names.end(), path) != names.end()) return node->Path();
    }
    return std::nullopt;
}

// Nodes that no phone's policy knows, with the kernel's own ways of reading a text that the
// vendor's nodes use as well.
void Machine::AddStandIns(std::vector<NamedNode>& nodes) const {
    if (!mKernel.has.contains("stand_ins")) return;
    constexpr int64_t kU32Max = std::numeric_limits<uint32_t>::max();
    const auto isTo200 = [](size_t, int64_t n) { return n >= 0 && n <= 200; };
    const auto isAny = [](size_t, int64_t) { return true; };
    nodes.push_back({{"/proc/sys/vm/swappiness"}, MakeSysctlNode({60}, isTo200)});
    nodes.push_back({{"/proc/sys/kernel/printk"}, MakeSysctlNode({1, 4, 1, 7}, isAny)});
    nodes.push_back({{"/sys/kernel/mm/ksm/sleep_millisecs"},
                     MakeNumberNode({"sleep_millisecs", Scan::kWhole, 0, kU32Max, 20})});
}

std::vector<NamedNode> Machine::LayOutModel(const DeviceProfile& profile) const {
    std::vector<NamedNode> nodes = LayOutNodes(profile, mKernel.rules);
    AddStandIns(nodes);
    return nodes;
}

std::vector<NamedNode> Machine::LayOut(const DeviceProfile& profile) {
    std::error_code ignored;
    for (const auto& device : std::filesystem::directory_iterator(kDevfreqClass, ignored)) {
        mDevfreq = device.path().string();
    }
    mDoubles.clear();
    std::vector<NamedNode> nodes = LayOutNodes(profile, mKernel.rules);
    std::vector<NamedNode> standIns;
    AddStandIns(standIns);
    const auto makeDouble = [this](NamedNode& named, const std::string& path) {
        const int fd = machine_calls::Open(path, O_RDONLY);
        if (fd < 0) {
            throw std::runtime_error(fmt::format("the machine's kernel, {}, has no {}: {}",
                                                 mKernel.name, path, ErrorText(-fd)));
        }
        machine_calls::Close(fd);
        const auto node = std::make_shared<Double>(*this, named, path);
        mDoubles.push_back(node);
        named.node = node;
    };
    for (NamedNode& named : nodes) {
        if (const auto path = RealPath(named.names.front())) makeDouble(named, *path);
    }
    for (NamedNode& named : standIns) {
        makeDouble(named, named.names.front());
        nodes.push_back(std::move(named));
    }
    mCounts.nodes = mDoubles.size();
    if (!mHasBooted) {
        for (const auto& node : mDoubles) CompareNames(*node);
        CompareCpus(profile);
        CompareAll("booting");
    }
    mHasBooted = true;
    Boot();
    return nodes;
}

// Of the phone's names for a node the machine's kernel must have the same file.
void Machine::CompareNames(const Double& node) {
    const std::vector<std::string>& names = node.Names();
    for (size_t i = 1; i < names.size(); ++i) {
        std::error_code error;
        const bool isSame = std::filesystem::equivalent(names[0], names[i], error);
        ++mCounts.comparisons;
        if (!isSame) Differ(names[i], "another file than " + names[0], "the same");
    }
}

// Under every name that the machine's kernel has for a node the phone must have it as well.
void Machine::CompareCpus(const DeviceProfile& profile) {
    for (int cpu = 0; cpu <= profile.clusters.back().lastCpu; ++cpu) {
        for (const char* const name :
             {"online", "cpufreq/scaling_min_freq", "cpufreq/scaling_max_freq",
              "cpufreq/scaling_cur_freq", "cpufreq/cpuinfo_min_freq", "cpufreq/cpuinfo_max_freq"}) {
            const std::string path = fmt::format("/sys/devices/system/cpu/cpu{}/{}", cpu, name);
            ++mCounts.comparisons;
            std::error_code ignored;
            if (std::filesystem::exists(path, ignored) == PathOf(path).has_value()) continue;
            Differ(path, PathOf(path) ? "no such node" : "a node",
                   PathOf(path) ? "a node" : "none");
        }
    }
}

void Machine::Boot() {
    for (const bool isOnline : {true, false}) {
        for (const auto& node : mDoubles) {
            if (node->IsReadOnly() || node->Path().ends_with("/online") != isOnline) continue;
            const ssize_t taken = node->File().Write(node->Model().Save());
            if (taken < 0) {
                throw std::runtime_error(fmt::format("{} cannot be set to {}: {}", node->Path(),
                                                     node->Model().Save(), ResultText(taken)));
            }
        }
    }
    if (mHalMin.Write("all none") < 0 || mHalMax.Write("all none") < 0) {
        throw std::runtime_error("the module for the HAL's requests is not loaded");
    }
    CompareAll("going back to the state after boot");
}

// A driver is as slow as the phone's faults say of any name of its node.
void Machine::SetDelay(const std::vector<std::string>& names) {
    Phone* const phone = Phone::Current();
    if (phone == nullptr) return;
    int delayMs = 0;
    for (const std::string& name : names) {
        const auto fault = phone->GetFaults().OnNode(name);
        if (fault && fault->kind == NodeFault::Kind::kSlow) delayMs = fault->slowMs;
    }
    if (delayMs == mDelayMs) return;
    mDelayMs = delayMs;
    mDelay.Write(std::to_string(delayMs));
}

ssize_t Machine::Judge(const Double& node, const std::string& written, ssize_t kernels,
                       ssize_t models) {
    ++mCounts.writes;
    ++mCounts.comparisons;
    if (kernels != models) Differ(written, ResultText(kernels), ResultText(models));
    CompareFollowers(&node, written);
    return kernels;
}

void Machine::CompareAll(const std::string& after) {
    CompareFollowers(nullptr, after);
}

void Machine::CompareFollowers(const Double* written, const std::string& after) {
    // Waits for what the kernel does behind a write.
    std::string ignored;
    mSettle.Read(ignored);
    for (const auto& node : mDoubles) {
        if (written == nullptr || written->MayChange(*node)) Compare(*node, after);
    }
}

// Nodes may follow late: a difference is one that stays.
void Machine::Compare(Double& node, const std::string& after) {
    if (mKernel.unreal.contains(node.Names().front())) return node.Look();
    ++mCounts.comparisons;
    const bool isPatient = mCounts.differences < kManyDifferences;
    const auto end = std::chrono::steady_clock::now() + (isPatient ? kPatience : kLittlePatience);
    for (node.Look(); !node.IsAsModel(); node.Look()) {
        if (std::chrono::steady_clock::now() > end) {
            const std::string what =
                after.starts_with(node.Path() + " <-") ? after : node.Path() + " after " + after;
            const Node& model = node.Model();
            return Differ(what, ReadText(node.ReadError(), node.Show()),
                          ReadText(model.ReadError(), model.Show()));
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
}

void Machine::Begin(std::function<std::string()> where) {
    mWhere = std::move(where);
    mToldOfPart = 0;
}

void Machine::Differ(const std::string& what, const std::string& kernels,
                     const std::string& models) {
    constexpr size_t kMostTold = 6;
    ++mCounts.differences;
    if (++mToldOfPart > kMostTold) return;
    mReport << fmt::format("! {}: {}\n    kernel: {}\n    model:  {}\n",
                           mWhere ? mWhere() : "at the start", what, kernels, models);
    if (mToldOfPart == kMostTold) mReport << "  (what follows there is counted only)\n";
    mReport.flush();
}

}  // namespace lab

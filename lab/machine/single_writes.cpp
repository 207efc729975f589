#include "lab/machine/single_writes.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "lab/names/text.h"

namespace lab {

namespace {

constexpr std::string_view kHalWord = "hal ";
constexpr std::string_view kCreateWord = "create ";
constexpr std::string_view kAtWord = " at ";

// "hal NODE", "create NODE", "NODE at 3"
SingleWrite ReadWhere(std::string key) {
    SingleWrite write;
    if (key.starts_with(kHalWord)) {
        write.kind = SingleWrite::Kind::kHal;
        key.erase(0, kHalWord.size());
    } else if (key.starts_with(kCreateWord)) {
        write.kind = SingleWrite::Kind::kCreate;
        key.erase(0, kCreateWord.size());
    }
    if (const size_t at = key.find(kAtWord); at != std::string::npos) {
        const auto offset = ParseNumber(key.substr(at + kAtWord.size()));
        if (!offset || *offset < 0) throw std::runtime_error("'at' is followed by no offset");
        write.offset = static_cast<size_t>(*offset);
        key.resize(at);
    }
    write.node = std::move(key);
    return write;
}

// A text, or {text: "5", blanks: 5000}: with so many blanks behind it.
std::string ReadText(const YamlNode& node) {
    if (node.kind != YamlNode::Kind::kMap) return node.AsText("the text");
    node.ExpectFields("a text", {"text", "blanks"});
    const int64_t blanks = node.Get("blanks").AsInt("a number of blanks", 0, 100'000);
    return node.Get("text").AsText("the text") + std::string(static_cast<size_t>(blanks), ' ');
}

WriteCase ReadCase(const YamlNode& node) {
    node.ExpectFields("a case", {"name", "device", "writes"});
    WriteCase made;
    made.name = node.Get("name").AsText("the name of the case");
    if (const YamlNode* device = node.Find("device")) made.device = device->AsText("a device");
    for (const YamlNode& item : node.Get("writes").AsList("writes")) {
        if (item.kind != YamlNode::Kind::kMap || item.fields.size() != 1) {
            item.Fail("a write is a map from one node to the text, such as {big/online: \"0\"}");
        }
        const auto& [key, text] = item.fields.front();
        try {
            made.writes.push_back(ReadWhere(key.AsText("a node")));
        } catch (const std::runtime_error& error) {
            key.Fail(error.what());
        }
        SingleWrite& write = made.writes.back();
        write.line = item.line;
        if (text.kind != YamlNode::Kind::kNull) write.text = ReadText(text);
        if (!write.text && write.kind != SingleWrite::Kind::kHal) {
            text.Fail("only the HAL takes a request back; \"\" is an empty text");
        }
    }
    return made;
}

// "\n" and "\0" in a word of the command line.
std::string Unescaped(const std::string& text) {
    constexpr std::string_view kLetters("nt0\\");
    constexpr std::string_view kMeanings("\n\t\0\\", kLetters.size());
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool mayEscape = text[i] == '\\' && i + 1 < text.size();
        const size_t letter = mayEscape ? kLetters.find(text[i + 1]) : kLetters.npos;
        plain += letter == kLetters.npos ? text[i] : kMeanings[letter];
        if (letter != kLetters.npos) ++i;
    }
    return plain;
}

class Player {
  public:
    Player(Machine& machine, Phone& phone, const DeviceProfile& device)
        : mMachine(machine), mKernel(phone.GetKernel()), mDevice(device) {}

    void Play(const WriteCase& one) {
        mBoot.clear();
        mHalNodes.clear();
        for (const SingleWrite& write : one.writes) Make(write);
        mMachine.CompareAll("the case's last write");
        GoBack();
    }

  private:
    // CLUSTER/NAME is a node of the cluster's policy, or of its first CPU.
    std::string PathOf(const std::string& node) const {
        if (node.starts_with('/')) return node;
        const size_t slash = node.find('/');
        const std::string first = node.substr(0, slash);
        const std::string name = slash == std::string::npos ? "" : node.substr(slash + 1);
        if (first == "gpu") return "/sys/class/kgsl/kgsl-3d0/devfreq/" + name;
        const CpuCluster* const cluster =
            first == "last" ? &mDevice.clusters.back() : mDevice.FindCluster(first);
        if (cluster == nullptr || name.empty()) {
            throw std::runtime_error(fmt::format(
                "'{}' is no node: give a path, CLUSTER/NAME or gpu/NAME; the clusters of {} are "
                "little to last",
                node, mDevice.name));
        }
        const std::string cpus = "/sys/devices/system/cpu/";
        if (name == "online") return fmt::format("{}cpu{}/online", cpus, cluster->firstCpu);
        return fmt::format("{}cpufreq/policy{}/{}", cpus, cluster->firstCpu, name);
    }

    void Make(const SingleWrite& write) {
        const std::string path = PathOf(write.node);
        const std::optional<std::string> machines = mMachine.PathOf(path);
        const bool creates = write.kind == SingleWrite::Kind::kCreate;
        if (!machines && !creates) throw std::runtime_error("the machine does not have " + path);
        if (machines) mBoot.try_emplace(path, StateOf(path));
        if (write.kind == SingleWrite::Kind::kHal) {
            mHalNodes.insert(path);
            if (write.text) {
                mKernel.Write(path, *write.text, Kernel::Writer::kHal);
            } else {
                mKernel.Withdraw(path, Kernel::Writer::kHal);
            }
            return;
        }
        const int fd = OpenBoth(path, machines.value_or(path), O_WRONLY | (creates ? O_CREAT : 0));
        if (fd < 0) return;
        if (machines) {
            // The node writes to the machine and compares.
            const auto offset = static_cast<off_t>(write.offset);
            [[maybe_unused]] const ssize_t taken =
                pwrite(fd, write.text->data(), write.text->size(), offset);
        }
        close(fd);
    }

    // Opens the phone's node, and the machine's to compare.
    int OpenBoth(const std::string& path, const std::string& machines, int flags) {
        const int fd = open(path.c_str(), flags, 0666);
        const int models = fd < 0 ? errno : 0;
        const int opened = machine_calls::Open(machines, flags);
        const int kernels = opened < 0 ? -opened : 0;
        if (opened >= 0) machine_calls::Close(opened);
        if (kernels != models) {
            const auto text = [](int error) {
                return error == 0 ? std::string("opens") : strerrorname_np(error);
            };
            mMachine.Differ("opening " + machines, text(kernels), text(models));
        }
        return fd;
    }

    std::string StateOf(const std::string& path) const {
        const auto requests = mKernel.RequestsOn(path);
        return requests ? std::to_string(requests->program) : mKernel.Value(path);
    }

    // To the state after boot; CPUs first, without which limits are refused.
    void GoBack() {
        for (const std::string& path : mHalNodes) mKernel.Withdraw(path, Kernel::Writer::kHal);
        for (const bool isOnline : {true, false}) {
            for (const auto& [path, state] : mBoot) {
                if (path.ends_with("/online") == isOnline) mKernel.Write(path, state);
            }
        }
    }

    Machine& mMachine;
    Kernel& mKernel;
    const DeviceProfile& mDevice;
    std::map<std::string, std::string> mBoot;
    std::set<std::string> mHalNodes;
};

}  // namespace

bool IsWriteList(const YamlNode& root) {
    return root.kind == YamlNode::Kind::kMap && root.Find("cases") != nullptr;
}

WriteList ReadWriteList(const YamlNode& root) {
    root.ExpectFields("a list of writes", {"cases"});
    WriteList list;
    list.file = root.File();
    for (const YamlNode& node : root.Get("cases").AsList("cases")) {
        list.cases.push_back(ReadCase(node));
    }
    return list;
}

SingleWrite ParseSingleWrite(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw std::runtime_error("a write is NODE=TEXT, such as big/scaling_max_freq=1500000");
    }
    SingleWrite write = ReadWhere(text.substr(0, equals));
    write.text = Unescaped(text.substr(equals + 1));
    return write;
}

void PlayWrites(const WriteList& list, Machine& machine, Phone& phone,
                const DeviceProfile& device) {
    Player player(machine, phone, device);
    for (const WriteCase& one : list.cases) {
        if (!one.device.empty() && one.device != device.name) continue;
        machine.Begin([&] { return fmt::format("{}: {}", list.file, one.name); });
        player.Play(one);
    }
    phone.Events().Clear();
}

}  // namespace lab

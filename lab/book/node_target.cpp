#include "lab/book/node_target.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "lab/names/node_names.h"
#include "lab/names/tag_names.h"
#include "lab/names/text.h"
#include "lab/scenes/scene_meaning.h"
#include "loader/vocabulary_table.h"
#include "nodes/tag_opcode_table.h"

namespace lab {
namespace {

// More than this many candidates are not listed one by one.
constexpr size_t kMostListed = 12;

std::set<int> AllOpcodes() {
    std::set<int> opcodes;
    for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) opcodes.insert(row.opcode);
    for (const tarquel::TagOpcode& row : tarquel::kTagOpcodes) {
        opcodes.insert(static_cast<int>(row.opcode));
    }
    return opcodes;
}

bool IsByCpu(const std::string& path) {
    return ShortNode(path).starts_with("cpu") && path.find("/policy") == std::string::npos;
}

// Blanks and slashes are one to whoever types a name.
std::string Slashed(std::string text) {
    std::replace(text.begin(), text.end(), ' ', '/');
    return text;
}

// One question to one kernel.
class Finder {
  public:
    Finder(const DeviceProfile& device, const Kernel& kernel,
           const std::vector<std::string>& arranged)
        : mDevice(device), mKernel(kernel), mPaths(kernel.Paths()), mArranged(arranged) {}

    NodeTarget Find(const std::string& name) const {
        if (name.starts_with("/")) return TargetOf(WholePath(name));
        const std::vector<std::string> byKey = NodesOfKey(name);
        const std::vector<std::string> found = byKey.empty() ? NodesOfPathEnd(name) : byKey;
        if (found.empty()) FailMissing(name);
        if (found.size() > 1) FailAmbiguous(name, found);
        return TargetOf(found.front());
    }

  private:
    void AddDistinct(const std::string& path, std::vector<std::string>& nodes) const {
        if (!mKernel.Has(path)) return;
        for (std::string& known : nodes) {
            if (!mKernel.IsSameNode(known, path)) continue;
            if (!IsByCpu(known) && IsByCpu(path)) known = path;
            return;
        }
        nodes.push_back(path);
    }

    void AddTagNodes(int tag, std::vector<std::string>& nodes) const {
        for (const std::string& path : TagNodes(tag, mDevice)) AddDistinct(path, nodes);
    }

    void AddOpcodeNodes(int opcode, std::vector<std::string>& nodes) const {
        for (const Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), mDevice)) {
            AddDistinct(drive.path, nodes);
        }
    }

    // The nodes of a tag or opcode called `name`. A name that is one of these and has no node is a
    // mistake of its own.
    std::vector<std::string> NodesOfKey(const std::string& name) const {
        std::vector<std::string> nodes;
        const std::optional<int64_t> number = ParseNumber(name);
        const bool isOpcode = number && *number > kHighestTag && *number <= INT32_MAX;
        const std::optional<int> opcode =
            isOpcode ? static_cast<int>(*number) : FindKeyOpcode(name);
        if (opcode) AddOpcodeNodes(*opcode, nodes);
        if (!nodes.empty()) return nodes;
        const std::optional<int> tag = isOpcode ? std::nullopt : FindTag(name, LayoutOf(mDevice));
        if (tag) AddTagNodes(*tag, nodes);
        if (nodes.empty() && tag) {
            throw std::runtime_error(fmt::format(
                "tag {} ({}) has no node on {}; 'tarquel-lab nodes --device {}' lists those that "
                "have one",
                *tag, TagLabel(*tag, LayoutOf(mDevice)), mDevice.name, mDevice.name));
        }
        if (nodes.empty() && opcode && NodesOfPathEnd(name).empty()) {
            throw std::runtime_error(
                fmt::format("'{}' (opcode 0x{:08X}) stands for no node that {} has in the lab",
                            name, static_cast<unsigned>(*opcode), mDevice.name));
        }
        return nodes;
    }

    // The nodes whose path ends with `name` or whose short form it is; where there is none, those
    // whose short form begins with its first word and ends with its last: "gpu max_freq".
    std::vector<std::string> NodesOfPathEnd(const std::string& name) const {
        const std::string wanted = Slashed(name);
        const std::string first = wanted.substr(0, wanted.find('/') + 1);
        const std::string last = wanted.substr(first.empty() ? 0 : first.size() - 1);
        std::vector<std::string> nodes;
        std::vector<std::string> similar;
        for (const std::string& path : mPaths) {
            const std::string shortName = Slashed(ShortNode(path));
            if (path.ends_with("/" + wanted) || shortName == wanted) AddDistinct(path, nodes);
            if (!first.empty() && shortName.starts_with(first) && shortName.ends_with(last)) {
                AddDistinct(path, similar);
            }
        }
        return nodes.empty() ? similar : nodes;
    }

    std::string WholePath(const std::string& path) const {
        const bool isArranged =
            std::find(mArranged.begin(), mArranged.end(), path) != mArranged.end();
        if (mKernel.Has(path) || isArranged) return path;
        throw std::runtime_error(
            fmt::format("{} has no node {}{}", mDevice.name, path, DidYouMean(path, mPaths)));
    }

    [[noreturn]] void FailMissing(const std::string& name) const {
        std::vector<std::string> known = TagNamesOf(LayoutOf(mDevice));
        for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames) known.emplace_back(row.name);
        for (const std::string& path : mPaths) {
            const std::string shortName = ShortNode(path);
            known.push_back(shortName);
            known.push_back(shortName.substr(0, shortName.find(' ') + 1) +
                            path.substr(path.rfind('/') + 1));
        }
        throw std::runtime_error(fmt::format(
            "'{}' names no node of {}{}; give a path, its end, a tag or a scene file's key "
            "('tarquel-lab nodes --device {}' lists them)",
            name, mDevice.name, DidYouMean(name, known), mDevice.name));
    }

    [[noreturn]] void FailAmbiguous(const std::string& name,
                                    const std::vector<std::string>& found) const {
        std::vector<std::string> listed;
        for (const std::string& path : found) {
            if (listed.size() < kMostListed) listed.push_back("'" + ShortNode(path) + "'");
        }
        if (found.size() > listed.size()) listed.emplace_back("...");
        throw std::runtime_error(fmt::format("'{}' names {} nodes of {}; say which: {}", name,
                                             found.size(), mDevice.name, Join(listed)));
    }

    NodeTarget TargetOf(const std::string& path) const {
        NodeTarget target;
        for (const std::string& other : mPaths) {
            if (IsByCpu(other) && mKernel.IsSameNode(other, path)) target.sharedBy.push_back(other);
        }
        target.path = path;
        if (!target.sharedBy.empty()) {
            target.path = target.sharedBy.front();
            target.sharedBy.erase(target.sharedBy.begin());
        }
        const auto isNode = [&](const std::string& other) {
            return other == path || mKernel.IsSameNode(other, path);
        };
        for (int tag = 0; tag <= kHighestTag; ++tag) {
            const std::vector<std::string> nodes = TagNodes(tag, mDevice);
            if (std::any_of(nodes.begin(), nodes.end(), isNode)) target.tags.push_back(tag);
        }
        for (const int opcode : AllOpcodes()) {
            for (const Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), mDevice)) {
                if (isNode(drive.path)) target.opcodes.insert(opcode);
            }
        }
        return target;
    }

    const DeviceProfile& mDevice;
    const Kernel& mKernel;
    const std::vector<std::string> mPaths;
    const std::vector<std::string>& mArranged;
};

}  // namespace

bool NodeTarget::HasTag(int tag) const {
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

Drive NodeTarget::DriveOf(int opcode, const DeviceProfile& device, const Kernel& kernel) const {
    for (const Drive& drive : DrivesOf(static_cast<uint32_t>(opcode), device)) {
        if (drive.path == path || kernel.IsSameNode(drive.path, path)) return drive;
    }
    return {};
}

NodeTarget FindNode(const std::string& name, const DeviceProfile& device, const Kernel& kernel,
                    const std::vector<std::string>& arranged) {
    return Finder(device, kernel, arranged).Find(name);
}

}  // namespace lab

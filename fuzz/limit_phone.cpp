#include "fuzz/limit_phone.h"

#include <algorithm>
#include <utility>

#include "lab/names/node_names.h"
#include "lab/phone/kernel_text.h"

namespace lab {
namespace {

constexpr int kGpuFloorTag = 9;

int64_t ToNumber(const std::string& text) {
    return static_cast<int64_t>(ScanNumber(text).value_or(0));
}

}  // namespace

LimitPhone::LimitPhone(const DeviceProfile& device) : mDevice(device) {
    const auto add = [this](int tag, Side side, const std::shared_ptr<FreqLimits>& limits) {
        Node& node = mNodes[tag];
        node.path = TagNodes(tag, mDevice).front();
        node.limits = limits;
        node.side = side;
    };
    const auto addRange = [&add](int floorTag, const std::shared_ptr<FreqLimits>& limits) {
        add(floorTag, Side::kMin, limits);
        add(floorTag + 1, Side::kMax, limits);
    };
    // Of two clusters, the second has the last one's tags.
    constexpr int kFloorTags[] = {0, 3, 6};
    const size_t count = mDevice.clusters.size();
    for (size_t i = 0; i < count; ++i) {
        const bool isLast = i + 1 == count;
        addRange(isLast ? kFloorTags[2] : kFloorTags[i],
                 std::make_shared<CpuLimits>(mDevice.clusters[i].khz, KernelRules()));
    }
    addRange(kGpuFloorTag, std::make_shared<DevfreqLimits>(mDevice.gpuMhz.back() * kHzPerMhz,
                                                           mDevice.gpuMhz.front() * kHzPerMhz));
}

int LimitPhone::Take(std::vector<int> list, std::optional<int64_t> untilMs) {
    mLocks.push_back({++mLastNumber, std::move(list), untilMs});
    AddClaims(mLocks.back());
    for (auto& [tag, node] : mNodes) Settle(node);
    return mLastNumber;
}

void LimitPhone::Renew(int number, std::vector<int> list, std::optional<int64_t> untilMs) {
    const auto held = std::find_if(mLocks.begin(), mLocks.end(),
                                   [number](const Lock& lock) { return lock.number == number; });
    DropClaims(number);
    held->list = std::move(list);
    held->untilMs = untilMs;
    AddClaims(*held);
    for (auto& [tag, node] : mNodes) Settle(node);
}

void LimitPhone::Drop(int number) {
    std::erase_if(mLocks, [number](const Lock& lock) { return lock.number == number; });
    DropClaims(number);
    for (auto& [tag, node] : mNodes) Settle(node);
}

const LimitPhone::Lock* LimitPhone::Find(int number) const {
    const auto held = std::find_if(mLocks.begin(), mLocks.end(),
                                   [number](const Lock& lock) { return lock.number == number; });
    return held == mLocks.end() ? nullptr : &*held;
}

const std::vector<Drive>& LimitPhone::Drives(int opcode) {
    const auto [drives, isNew] = mDrives.try_emplace(opcode);
    if (isNew) drives->second = DrivesOf(static_cast<uint32_t>(opcode), mDevice);
    return drives->second;
}

void LimitPhone::AddClaims(const Lock& lock) {
    for (size_t i = 0; i + 1 < lock.list.size(); i += 2) {
        for (const Drive& drive : Drives(lock.list[i])) {
            for (auto& [tag, node] : mNodes) {
                if (node.path != drive.path) continue;
                const bool isInPlace = drive.writer == Kernel::Writer::kHalInPlace;
                (isInPlace ? node.inPlaceClaims : node.claims)
                    .push_back({lock.number, ToNodeUnit(drive, lock.list[i + 1], mDevice)});
            }
        }
    }
}

void LimitPhone::DropClaims(int number) {
    const auto isOfLock = [number](const Claim& claim) { return claim.number == number; };
    for (auto& [tag, node] : mNodes) {
        std::erase_if(node.claims, isOfLock);
        std::erase_if(node.inPlaceClaims, isOfLock);
    }
}

// Gives the kernel what the HAL makes of the claims: the highest floor or the lowest ceiling. A
// value in the program's place is put there when it changes and lifts every other ceiling.
void LimitPhone::Settle(Node& node) {
    const auto strictest = [&node](const std::vector<Claim>& claims) {
        std::optional<int64_t> found;
        for (const Claim& claim : claims) {
            const bool isStricter =
                !found || (node.side == Side::kMin ? claim.value > *found : claim.value < *found);
            if (isStricter) found = claim.value;
        }
        return found;
    };
    const std::optional<int64_t> inPlace = strictest(node.inPlaceClaims);
    node.limits->SetHal(node.side, inPlace ? std::nullopt : strictest(node.claims));
    if (inPlace == node.inPlace) return;
    node.inPlace = inPlace;
    if (inPlace) {
        if (!node.covered) node.covered = node.limits->Taken(node.side);
        node.limits->Take(node.side, std::to_string(*inPlace));
    } else if (node.covered) {
        node.limits->Take(node.side, *node.covered);
        node.covered.reset();
    }
}

// A write counts at once, also while the HAL's value stands in its place.
void LimitPhone::Write(int tag, int value) {
    const auto found = mNodes.find(tag);
    if (found == mNodes.end()) return;
    Node& node = found->second;
    node.limits->Take(node.side, std::to_string(value));
    if (node.covered) node.covered = node.limits->Taken(node.side);
}

int64_t LimitPhone::Reading(int tag) const {
    const Node& node = mNodes.at(tag);
    return node.limits->Show(node.side);
}

Kernel::LimitRequests LimitPhone::Requests(int tag) const {
    const Node& node = mNodes.at(tag);
    Kernel::LimitRequests requests;
    const std::string present = node.limits->Taken(node.side);
    requests.program = ToNumber(node.covered.value_or(present));
    if (node.covered) requests.inPlace = ToNumber(present);
    requests.hal = node.limits->Hal(node.side);
    return requests;
}

}  // namespace lab

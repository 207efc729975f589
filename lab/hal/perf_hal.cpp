#include "lab/hal/perf_hal.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>

#include "lab/phone/events.h"

namespace lab {

namespace {

// A node with one number for each cluster boundary has two, however many clusters there are.
constexpr size_t kMostEntries = 2;

// The claim that counts among those for `entry`, or null.
const PerfHal::Claim* WinnerOf(const std::vector<PerfHal::Claim>& claims,
                               std::optional<size_t> entry) {
    const PerfHal::Claim* winner = nullptr;
    for (const PerfHal::Claim& claim : claims) {
        if (claim.entry != entry) continue;
        if (winner == nullptr || PerfHal::Beats(claim, *winner)) winner = &claim;
    }
    return winner;
}

}  // namespace

PerfHal::~PerfHal() {
    for (const auto& [handle, held] : mHeld) {
        if (held.expiry) mClock.Cancel(*held.expiry);
    }
}

int PerfHal::Acquire(int handle, int durationMs, const int* list, int count) {
    std::lock_guard<std::mutex> guard(mMutex);
    LockAcquire record{handle, durationMs, {}, -1};
    if (list != nullptr && count > 0) record.list.assign(list, list + count);
    const bool isWellFormed = !record.list.empty() && count % 2 == 0 && durationMs >= 0;
    if (!isWellFormed || mRefusals > 0) {
        if (mRefusals > 0) {
            --mRefusals;
            record.returned = mRefusal;
        }
        mRecorder.Add(record);
        return record.returned;
    }
    const bool isRenewal = mHeld.contains(handle);
    record.returned = isRenewal ? handle : ++mLastHandle;
    mRecorder.Add(record);
    Hold(record.returned, durationMs, std::move(record.list));
    return record.returned;
}

int PerfHal::Release(int handle) {
    std::lock_guard<std::mutex> guard(mMutex);
    const bool wasHeld = mHeld.contains(handle);
    const int result = wasHeld ? 0 : -1;
    mRecorder.Add(LockRelease{handle, result, wasHeld});
    if (wasHeld) LetGo(handle);
    return result;
}

void PerfHal::RefuseNext(int count, int result) {
    std::lock_guard<std::mutex> guard(mMutex);
    mRefusals = count;
    mRefusal = result;
}

std::vector<PerfHal::Lock> PerfHal::Held() const {
    std::lock_guard<std::mutex> guard(mMutex);
    std::vector<Lock> locks;
    for (const auto& [handle, held] : mHeld) locks.push_back(held.lock);
    return locks;
}

std::vector<PerfHal::Claim> PerfHal::ClaimsOn(const std::string& path) const {
    std::lock_guard<std::mutex> guard(mMutex);
    std::vector<Claim> found;
    for (const auto& [key, resource] : mResources) {
        if (key.first != path && !mKernel.IsSameNode(resource.drive->path, path)) continue;
        found.insert(found.end(), resource.claims.begin(), resource.claims.end());
    }
    Weigh(found);
    return found;
}

// Takes the lock, or gives the held one its new list and duration.
void PerfHal::Hold(int handle, int durationMs, std::vector<int> list) {
    HeldLock& held = mHeld[handle];
    const bool isNew = held.lock.handle == 0;
    if (held.expiry) mClock.Cancel(*held.expiry);
    const std::vector<ResourceKey> former = DropClaims(held.lock);

    const Time now = mClock.Now();
    if (isNew) held.lock.since = now;
    held.lock.handle = handle;
    held.lock.list = std::move(list);
    held.lock.until.reset();
    held.expiry.reset();
    if (durationMs > 0) {
        held.lock.until = now + std::chrono::milliseconds(durationMs);
        held.expiry = mClock.Schedule(*held.lock.until, [this, handle] { Expire(handle); });
    }

    // What only the former list named is undone first, then the new list in its order.
    const std::vector<ResourceKey> named = AddClaims(held.lock);
    std::vector<ResourceKey> changed;
    for (const ResourceKey& key : former) {
        if (std::find(named.begin(), named.end(), key) == named.end()) changed.push_back(key);
    }
    changed.insert(changed.end(), named.begin(), named.end());
    Apply(changed);
}

void PerfHal::LetGo(int handle) {
    const auto held = mHeld.find(handle);
    if (held->second.expiry) mClock.Cancel(*held->second.expiry);
    const Lock lock = std::move(held->second.lock);
    mHeld.erase(held);
    Apply(DropClaims(lock));
}

// Called by the clock; the lock may have been released or renewed meanwhile.
void PerfHal::Expire(int handle) {
    std::lock_guard<std::mutex> guard(mMutex);
    const auto held = mHeld.find(handle);
    if (held == mHeld.end()) return;
    const std::optional<Time> until = held->second.lock.until;
    if (!until || *until > mClock.Now()) return;
    mRecorder.Add(LockExpire{handle});
    LetGo(handle);
}

// What an opcode drives on this device, looked up once.
const std::vector<Drive>& PerfHal::Drives(int opcode) {
    const auto [drives, isNew] = mDrives.try_emplace(opcode);
    if (isNew) drives->second = DrivesOf(static_cast<uint32_t>(opcode), mKernel.Profile());
    return drives->second;
}

// Returns the resources that the lock names, in the order of its list.
std::vector<PerfHal::ResourceKey> PerfHal::AddClaims(const Lock& lock) {
    std::vector<ResourceKey> named;
    for (size_t i = 0; i + 1 < lock.list.size(); i += 2) {
        const int opcode = lock.list[i];
        const int value = lock.list[i + 1];
        for (const Drive& drive : Drives(opcode)) {
            if (!mKernel.Has(drive.path)) continue;
            named.emplace_back(drive.path, drive.writer);
            Resource& resource = mResources[named.back()];
            resource.drive = &drive;
            resource.claims.push_back(
                ClaimOf(drive, lock.handle, opcode, value, mKernel.Profile()));
        }
    }
    return named;
}

// Returns the resources on which the lock had a claim, last named first: undone in reverse,
// nodes that check each other pass through states that they have been in.
std::vector<PerfHal::ResourceKey> PerfHal::DropClaims(const Lock& lock) {
    std::vector<ResourceKey> changed;
    for (size_t i = lock.list.size(); i >= 2; i -= 2) {
        for (const Drive& drive : Drives(lock.list[i - 2])) {
            const auto found = mResources.find(ResourceKey(drive.path, drive.writer));
            if (found == mResources.end()) continue;
            const size_t dropped = std::erase_if(found->second.claims, [&lock](const Claim& claim) {
                return claim.handle == lock.handle;
            });
            if (dropped > 0) changed.push_back(found->first);
        }
    }
    return changed;
}

// True while a lock holds the node in the program's place: that is how a boost lifts a limit,
// so it stands above the ceilings that locks put on the same node beside the program.
bool PerfHal::IsLifted(const Drive& drive) const {
    if (drive.writer != Kernel::Writer::kHal || drive.winner != Drive::Winner::kLowest) {
        return false;
    }
    const auto lifting = mResources.find(ResourceKey(drive.path, Kernel::Writer::kHalInPlace));
    return lifting != mResources.end() && !lifting->second.claims.empty();
}

// What the HAL wants in the node; none when it wants nothing there.
std::optional<std::string> PerfHal::WantedIn(const Resource& resource) const {
    if (resource.claims.empty() || IsLifted(*resource.drive)) return std::nullopt;
    if (resource.drive->entry) return WantedVector(resource);
    const int64_t value = WinnerOf(resource.claims, std::nullopt)->nodeValue;
    // A count can be raised by a lock and lowered again; any other value has no undoing.
    if (resource.drive->isCounted && value <= 0) return std::nullopt;
    return std::to_string(value);
}

// Numbers that no lock claims stay the program's.
std::string PerfHal::WantedVector(const Resource& resource) const {
    std::istringstream present(mKernel.ProgramValue(resource.drive->path));
    std::string text;
    const size_t entries = std::min(mKernel.Profile().clusters.size() - 1, kMostEntries);
    for (size_t entry = 0; entry < entries; ++entry) {
        int64_t number = 0;
        present >> number;
        if (const Claim* winner = WinnerOf(resource.claims, entry)) number = winner->nodeValue;
        text += (entry == 0 ? "" : " ") + std::to_string(number);
    }
    return text;
}

// The changed resources and the ceilings that they lift or let back: lifted before the node is
// held in the program's place, back after.
std::vector<PerfHal::ResourceKey> PerfHal::WithCeilings(
    const std::vector<ResourceKey>& changed) const {
    std::vector<ResourceKey> all;
    for (const ResourceKey& key : changed) {
        const ResourceKey ceiling(key.first, Kernel::Writer::kHal);
        const bool hasCeiling =
            key.second == Kernel::Writer::kHalInPlace && mResources.contains(ceiling);
        const bool isHeld = !mResources.at(key).claims.empty();
        if (hasCeiling && isHeld) all.push_back(ceiling);
        all.push_back(key);
        if (hasCeiling && !isHeld) all.push_back(ceiling);
    }
    return all;
}

void PerfHal::Apply(const std::vector<ResourceKey>& named) {
    const std::vector<ResourceKey> changed = WithCeilings(named);
    std::set<std::string_view> folders;
    for (const ResourceKey& key : changed) {
        Resource& resource = mResources.at(key);
        const std::optional<std::string> wanted = WantedIn(resource);
        if (wanted == resource.written) continue;
        Put(resource, wanted);
        folders.insert(FolderOf(key.first));
    }
    // A neighbour that was clamped or refused may fit now.
    for (auto& [key, resource] : mResources) {
        if (resource.isAsWritten || !resource.written) continue;
        if (std::find(changed.begin(), changed.end(), key) != changed.end()) continue;
        if (folders.contains(FolderOf(key.first))) Put(resource, WantedIn(resource));
    }
    std::erase_if(mResources, [](const auto& item) { return item.second.claims.empty(); });
}

void PerfHal::Put(Resource& resource, const std::optional<std::string>& wanted) {
    const Drive& drive = *resource.drive;
    if (drive.isCounted) {
        if (resource.written) mKernel.Write(drive.path, "-" + *resource.written, drive.writer);
        if (wanted) mKernel.Write(drive.path, *wanted, drive.writer);
    } else if (wanted) {
        const int error = mKernel.Write(drive.path, *wanted, drive.writer);
        // Beside other requests it is no fault that the node shows theirs.
        resource.isAsWritten = error == 0 && (mKernel.RequestsOn(drive.path).has_value() ||
                                              mKernel.Value(drive.path) == *wanted);
    } else {
        mKernel.Withdraw(drive.path, drive.writer);
    }
    resource.written = wanted;
}

PerfHal::Claim PerfHal::ClaimOf(const Drive& drive, int handle, int opcode, int value,
                                const DeviceProfile& profile) {
    const bool isInPlace = drive.writer == Kernel::Writer::kHalInPlace;
    return {handle,      opcode,    value, ToNodeUnit(drive, value, profile),
            drive.entry, isInPlace, false, drive.winner};
}

bool PerfHal::Beats(const Claim& claim, const Claim& other) {
    switch (claim.winner) {
        case Drive::Winner::kHighest:
            return claim.nodeValue > other.nodeValue;
        case Drive::Winner::kLowest:
            return claim.nodeValue < other.nodeValue;
        case Drive::Winner::kNewest:
            break;
    }
    return true;
}

void PerfHal::Weigh(std::vector<Claim>& claims) {
    const bool isLifted = std::any_of(claims.begin(), claims.end(),
                                      [](const Claim& claim) { return claim.isInPlace; });
    for (Claim& claim : claims) {
        claim.wins = claim.isInPlace || !isLifted || claim.winner != Drive::Winner::kLowest;
    }
    for (Claim& claim : claims) {
        const auto isBetter = [&claim](const Claim& other) {
            return &other != &claim && other.isInPlace == claim.isInPlace &&
                   other.entry == claim.entry &&
                   (&other > &claim ? PerfHal::Beats(other, claim) : !PerfHal::Beats(claim, other));
        };
        if (std::any_of(claims.begin(), claims.end(), isBetter)) claim.wins = false;
    }
}

}  // namespace lab

#include "lab/phone/faults.h"

#include <chrono>
#include <utility>

namespace lab {

void Faults::SetNode(const std::string& path, const std::optional<NodeFault>& fault) {
    std::lock_guard<std::mutex> guard(mMutex);
    mNodes.erase(path);
    if (fault) mNodes.emplace(path, *fault);
    mHasNodes = !mNodes.empty();
}

void Faults::LiftNodes() {
    std::lock_guard<std::mutex> guard(mMutex);
    mNodes.clear();
    mHasNodes = false;
}

std::optional<NodeFault> Faults::OnNode(const std::string& path) const {
    if (!mHasNodes) return std::nullopt;
    std::lock_guard<std::mutex> guard(mMutex);
    const auto found = mNodes.find(path);
    return found == mNodes.end() ? std::nullopt : std::optional(found->second);
}

void Faults::HideProperties(std::set<std::string> names) {
    std::lock_guard<std::mutex> guard(mMutex);
    mHiddenProperties = std::move(names);
}

bool Faults::IsHidden(const std::string& name) const {
    std::lock_guard<std::mutex> guard(mMutex);
    return mHiddenProperties.contains(name);
}

void Faults::PassTime(int ms) const {
    if (ms > 0) mClock.AdvanceTo(mClock.Now() + std::chrono::milliseconds(ms));
}

}  // namespace lab

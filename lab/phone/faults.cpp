#include "lab/phone/faults.h"

#include <chrono>

namespace lab {

void Faults::SetNode(const std::string& path, const NodeFault& fault) {
    std::lock_guard<std::mutex> guard(mMutex);
    mNodes[path] = fault;
    mHasNodes = true;
}

void Faults::LiftNode(const std::string& path) {
    std::lock_guard<std::mutex> guard(mMutex);
    mNodes.erase(path);
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

void Faults::SetTimer(bool failsToCreate, bool failsToSet) {
    mTimerFailsToCreate = failsToCreate;
    mTimerFailsToSet = failsToSet;
}

void Faults::HideProperty(const std::string& name) {
    std::lock_guard<std::mutex> guard(mMutex);
    mHiddenProperties.insert(name);
}

void Faults::ShowProperties() {
    std::lock_guard<std::mutex> guard(mMutex);
    mHiddenProperties.clear();
}

bool Faults::IsHidden(const std::string& name) const {
    std::lock_guard<std::mutex> guard(mMutex);
    return mHiddenProperties.contains(name);
}

void Faults::PassTime(int ms) const {
    if (ms > 0) mClock.AdvanceTo(mClock.Now() + std::chrono::milliseconds(ms));
}

}  // namespace lab

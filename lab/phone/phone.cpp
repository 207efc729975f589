#include "lab/phone/phone.h"

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "lab/phone/posix_timers.h"
#include "lab/phone/real_timers.h"

namespace lab {

namespace {

std::atomic<Phone*> gCurrent{nullptr};

// By HalLibrary: the folder of the variant, null for no library.
constexpr std::array<const char*, 4> kHalFolders = {"", nullptr, "without_perf_lock_acq",
                                                    "without_perf_lock_rel"};

// Loads the HAL library from the folder that the program's build or installation has for it. Once
// it is loaded, opening it by its bare name finds it, without any search path.
void* LoadHalLibrary(const std::string& variant) {
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    const std::filesystem::path root = program.parent_path().parent_path();
    std::string tried;
    for (const char* const folder : {"lib", LAB_LIBRARY_FOLDER}) {
        const std::string file = (root / folder / variant / Phone::kHalLibrary).string();
        if (void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) return library;
        tried += "\n  ";
        tried += dlerror();  // NOLINT(concurrency-mt-unsafe): glibc keeps it for each thread
    }
    throw std::runtime_error("the perf HAL's library cannot be loaded:" + tried);
}

}  // namespace

Phone::Phone(const DeviceProfile& profile, const Options& options)
    : mClock(options.realtime ? MakeRealClock() : MakeVirtualClock()),
      mRecorder(*mClock),
      mKernel(profile, mRecorder, options.nodes),
      mHal(*mClock, mRecorder, mKernel),
      mFaults(*mClock),
      mTraceEnabled(options.traceEnabled),
      mProperties(profile.properties) {
    if (!options.realtime) mTimers = std::make_unique<PosixTimers>(*mClock, mRecorder);
    mProperties.try_emplace("ro.vendor.extension_library", kHalLibrary);
    if (options.hal) SetHalLibrary(HalLibrary::kWhole);
    gCurrent = this;
}

Phone::~Phone() {
    gCurrent = nullptr;
    if (mTimers == nullptr) WaitForTimerCallbacks();
    mClock->Stop();
    if (mHalLibrary != nullptr) dlclose(mHalLibrary);
}

void Phone::SetHalLibrary(HalLibrary library) {
    std::lock_guard<std::mutex> guard(mMutex);
    if (mHalLibrary != nullptr) dlclose(mHalLibrary);
    mHalLibrary = nullptr;
    const char* const variant = kHalFolders[static_cast<size_t>(library)];
    if (variant != nullptr) mHalLibrary = LoadHalLibrary(variant);
}

Phone* Phone::Current() {
    return gCurrent;
}

void Phone::SetProperty(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> guard(mMutex);
    mProperties[name] = value;
}

std::optional<std::string> Phone::Property(const std::string& name) const {
    if (mFaults.IsHidden(name)) return std::nullopt;
    std::lock_guard<std::mutex> guard(mMutex);
    const auto found = mProperties.find(name);
    return found == mProperties.end() ? std::nullopt : std::optional(found->second);
}

void Phone::SetOnDemandDuration(int cmdId, int ms) {
    std::lock_guard<std::mutex> guard(mMutex);
    mOnDemandDurations[cmdId] = ms;
}

int Phone::OnDemandDuration(int cmdId) const {
    std::lock_guard<std::mutex> guard(mMutex);
    const auto found = mOnDemandDurations.find(cmdId);
    return found == mOnDemandDurations.end() ? 0 : found->second;
}

}  // namespace lab

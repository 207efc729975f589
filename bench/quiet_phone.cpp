#include "bench/quiet_phone.h"

#include <android/log.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string_view>

#include "nodes/node_path_table.h"
#include "tarquel/jank_log.h"
#include "tarquel/on_demand_boost_server.h"
#include "tarquel/properties.h"
#include "tarquel/securec.h"

namespace bench {

const char* const kHalName = "libtarquel_quiet_hal.so";

namespace {

constexpr size_t kPathMax = 512;

// The folder that stands for the root of the phone's file system; empty without a phone.
std::array<char, kPathMax> sRoot{};
size_t sRootLength = 0;

thread_local long tOpens = 0;

bool IsNode(const char* path) {
    return std::strncmp(path, "/sys/", 5) == 0 || std::strncmp(path, "/proc/sys/", 10) == 0 ||
           std::strncmp(path, "/dev/cpuctl/", 12) == 0;
}

// Where a path really lies. Any other than a node's is its own place.
class Place {
  public:
    explicit Place(const char* path) : mPath(path) {
        const size_t length = std::strlen(path);
        if (sRootLength == 0 || !IsNode(path) || sRootLength + length >= kPathMax) return;
        std::memcpy(mBuffer.data(), sRoot.data(), sRootLength);
        std::memcpy(mBuffer.data() + sRootLength, path, length + 1);
        mPath = mBuffer.data();
    }
    const char* Path() const { return mPath; }

  private:
    const char* mPath;
    std::array<char, kPathMax> mBuffer;
};

void MakeNode(const std::string& root, std::string_view path) {
    const std::filesystem::path file(root + std::string(path));
    std::filesystem::create_directories(file.parent_path());
    const bool isCeiling = path.find("max") != std::string_view::npos;
    const bool isGpu = path.find("/kgsl/") != std::string_view::npos;
    const int value = path == tarquel::kGpuMinClockNode ? 300 : isCeiling ? 2000000 : 300000;
    std::ofstream(file) << value * (isGpu ? 100 : 1) << '\n';
}

void MakeNodes(const std::string& root) {
    namespace tables = tarquel::node_tables;
    for (const auto& rows : {std::span<const tarquel::FixedNode>(tables::kGpuNodes),
                             std::span<const tarquel::FixedNode>(tables::kCgroupNodes),
                             std::span<const tarquel::FixedNode>(tables::kBusNodes),
                             std::span<const tarquel::FixedNode>(tables::kSchedNodes),
                             std::span<const tarquel::FixedNode>(tables::kGovernorNodes)}) {
        for (const tarquel::FixedNode& row : rows) MakeNode(root, row.path);
    }
    constexpr int kCpus = 8;
    for (const auto& rows : {std::span<const tarquel::ClusterNode>(tables::kCpuinfoNodes),
                             std::span<const tarquel::ClusterNode>(tables::kCpuFreqNodes),
                             std::span<const tarquel::ClusterNode>(tables::kOnlineCoreNodes)}) {
        for (const tarquel::ClusterNode& row : rows) {
            for (int cpu = 0; cpu < kCpus; ++cpu) {
                MakeNode(root, std::string(tarquel::kCpuPrefix) + std::to_string(cpu) +
                                   std::string(row.suffix));
            }
        }
    }
}

}  // namespace

QuietPhone::QuietPhone() {
    const bool hasMemory = access("/dev/shm", W_OK) == 0;
    mRoot = (hasMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) +
            "/tarquel-bench-XXXXXX";
    if (mkdtemp(mRoot.data()) == nullptr || mRoot.size() >= kPathMax) {
        throw std::runtime_error("no folder for the phone's nodes: " + mRoot);
    }
    MakeNodes(mRoot);
    mHal = dlopen(TARQUEL_QUIET_HAL, RTLD_NOW);
    if (mHal == nullptr) throw std::runtime_error(std::string("no perf HAL: ") + dlerror());
    acquire = reinterpret_cast<decltype(acquire)>(dlsym(mHal, "perf_lock_acq"));
    release = reinterpret_cast<decltype(release)>(dlsym(mHal, "perf_lock_rel"));
    mHalCalls = static_cast<std::atomic<long>*>(dlsym(mHal, "quiet_hal_calls"));
    std::memcpy(sRoot.data(), mRoot.data(), mRoot.size());
    sRootLength = mRoot.size();
}

QuietPhone::~QuietPhone() {
    sRootLength = 0;
    std::error_code ignored;
    std::filesystem::remove_all(mRoot, ignored);
    dlclose(mHal);
}

QuietPhone::Calls QuietPhone::CountCalls() const {
    return {mHalCalls->load(), tOpens};
}

}  // namespace bench

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the platform's names
int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

int __zqlog_jank_print(int, int, const char*, ...) {
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier)

int property_get(const char* key, char* value, const char* defaultValue) {
    const bool isHal = std::strcmp(key, "ro.vendor.extension_library") == 0;
    std::strncpy(value, isHal ? bench::kHalName : defaultValue, tarquel::kPropertyValueMax - 1);
    value[tarquel::kPropertyValueMax - 1] = '\0';
    return static_cast<int>(std::strlen(value));
}

uint64_t atrace_get_enabled_tags() {
    return 0;
}
void atrace_begin_body(const char*) {}
void atrace_end_body() {}

int snprintf_s(char* dest, size_t destMax, size_t count, const char* format, ...) {
    const size_t room = count < destMax ? count + 1 : destMax;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(dest, room, format, arguments);
    va_end(arguments);
    return length < 0 || static_cast<size_t>(length) >= room ? -1 : length;
}

int sscanf_s(const char* buffer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = vsscanf(buffer, format, arguments);
    va_end(arguments);
    return result;
}

int fscanf_s(FILE* stream, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = vfscanf(stream, format, arguments);
    va_end(arguments);
    return result;
}

int memset_s(void* dest, size_t destMax, int c, size_t count) {
    if (count > destMax) return ERANGE;
    std::memset(dest, c, count);
    return 0;
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    ++bench::tOpens;
    return openat(AT_FDCWD, bench::Place(path).Path(), flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    using Function = FILE*(const char*, const char*);
    static const auto real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "fopen"));
    return real(bench::Place(path).Path(), mode);
}

}  // extern "C"

OnDemandBoostServer& OnDemandBoostServer::getInstance() {
    static OnDemandBoostServer server;
    return server;
}

int OnDemandBoostServer::GetDuration(int, int, const int*) {
    return 0;
}

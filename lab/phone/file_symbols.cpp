// fopen, open, write and close, as the plug-in finds them: a path of the phone's kernel reaches its
// nodes, any other path and file the C library.
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "lab/phone/kernel.h"
#include "lab/phone/phone.h"
#include "lab/phone/real_function.h"

namespace {

using lab::Kernel;
using lab::Phone;

// The phone's kernel if it answers for `path`, else null.
Kernel* KernelFor(const char* path) {
    Phone* const phone = Phone::Current();
    return phone != nullptr && Kernel::Owns(path) ? &phone->GetKernel() : nullptr;
}

// Hands `text` to the node at `path` of the phone that is alive. Returns 0 or the errno.
int StoreTo(const std::string& path, const char* text, size_t length) {
    Kernel* const kernel = KernelFor(path.c_str());
    return kernel == nullptr ? ENODEV : kernel->Write(path, std::string(text, length));
}

// The nodes that are open for writing by descriptor.
class OpenNodes {
  public:
    void Add(int fd, const std::string& path) {
        std::lock_guard<std::mutex> guard(mMutex);
        mPaths[fd] = path;
        mCount = mPaths.size();
    }

    // Without any open node this takes no lock: it stands in the way of every write and close.
    std::optional<std::string> Find(int fd) {
        if (mCount == 0) return std::nullopt;
        std::lock_guard<std::mutex> guard(mMutex);
        const auto found = mPaths.find(fd);
        return found == mPaths.end() ? std::nullopt : std::optional(found->second);
    }

    void Remove(int fd) {
        if (mCount == 0) return;
        std::lock_guard<std::mutex> guard(mMutex);
        mPaths.erase(fd);
        mCount = mPaths.size();
    }

  private:
    std::atomic<size_t> mCount{0};
    std::mutex mMutex;
    std::map<int, std::string> mPaths;
};

// Never destroyed: other destructors of the program may still write and close.
OpenNodes& Nodes() {
    static auto* const nodes = new OpenNodes;
    return *nodes;
}

ssize_t WriteCookie(void* cookie, const char* text, size_t length) {
    const int error = StoreTo(*static_cast<std::string*>(cookie), text, length);
    if (error == 0) return static_cast<ssize_t>(length);
    errno = error;
    return 0;  // what a cookie stream takes for a failure
}

int CloseCookie(void* cookie) {
    delete static_cast<std::string*>(cookie);
    return 0;
}

using FopenFunction = FILE*(const char*, const char*);

// A node is read from its file. It is written through a stream that hands the text to the kernel
// when it is flushed, so that a refusal shows where it does on a phone: when the stream is closed.
FILE* OpenStream(FopenFunction* real, const char* path, const char* mode) {
    Kernel* const kernel = KernelFor(path);
    if (kernel == nullptr) return real(path, mode);
    const bool forWriting = std::strpbrk(mode, "wa+") != nullptr;
    const int error = kernel->Open(path, forWriting);
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    if (!forWriting) return real(kernel->FileOf(path).c_str(), mode);
    auto* const name = new std::string(path);
    FILE* const stream = fopencookie(name, "w", {nullptr, WriteCookie, nullptr, CloseCookie});
    if (stream == nullptr) delete name;
    return stream;
}

using OpenFunction = int(const char*, int, ...);

int OpenFd(OpenFunction* real, const char* path, int flags, mode_t mode) {
    Kernel* const kernel = KernelFor(path);
    if (kernel == nullptr) return real(path, flags, mode);
    const bool forWriting = (flags & O_ACCMODE) != O_RDONLY;
    const int error = kernel->Open(path, forWriting);
    if (error != 0) {
        errno = error;
        return -1;
    }
    // The file keeps its text until the kernel has taken another.
    const int kept = flags & ~(O_TRUNC | O_CREAT | O_EXCL);
    const int fd = real(kernel->FileOf(path).c_str(), kept);
    if (fd >= 0 && forWriting) Nodes().Add(fd, path);
    return fd;
}

}  // namespace

extern "C" {

FILE* fopen(const char* path, const char* mode) {
    static const auto real = lab::RealFunction<FopenFunction>("fopen");
    return OpenStream(real, path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static const auto real = lab::RealFunction<FopenFunction>("fopen64");
    return OpenStream(real, path, mode);
}

int open(const char* path, int flags, ...) {
    static const auto real = lab::RealFunction<OpenFunction>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return OpenFd(real, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    static const auto real = lab::RealFunction<OpenFunction>("open64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return OpenFd(real, path, flags, mode);
}

ssize_t write(int fd, const void* data, size_t length) {
    static const auto real = lab::RealFunction<ssize_t(int, const void*, size_t)>("write");
    const std::optional<std::string> path = Nodes().Find(fd);
    if (!path) return real(fd, data, length);
    const int error = StoreTo(*path, static_cast<const char*>(data), length);
    if (error == 0) return static_cast<ssize_t>(length);
    errno = error;
    return -1;
}

int close(int fd) {
    static const auto real = lab::RealFunction<int(int)>("close");
    Nodes().Remove(fd);  // first: another thread may get the same number at once
    return real(fd);
}

}  // extern "C"

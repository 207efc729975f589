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

#include "lab/phone/events.h"
#include "lab/phone/faults.h"
#include "lab/phone/kernel.h"
#include "lab/phone/phone.h"
#include "lab/phone/real_function.h"

namespace {

using lab::Kernel;
using lab::NodeAccess;
using lab::NodeFault;
using lab::Phone;

// The phone's kernel if it answers for `path`, else null.
Kernel* KernelFor(const char* path) {
    Phone* const phone = Phone::Current();
    return phone != nullptr && Kernel::Owns(path) ? &phone->GetKernel() : nullptr;
}

bool Has(const std::optional<NodeFault>& fault, NodeFault::Kind kind) {
    return fault && fault->kind == kind;
}

// What the plug-in sees of an access that a fault keeps from the kernel. Returns `error`.
int RecordFault(const std::string& path, NodeAccess::Kind kind, const std::string& text,
                int error) {
    Phone& phone = *Phone::Current();
    const std::string value = phone.GetKernel().Value(path);
    phone.Events().Add(NodeAccess{kind, path, text, value, value, error, false});
    return error;
}

// Opens the node as the plug-in finds it. Returns 0 or the errno.
int OpenNode(Kernel& kernel, const std::string& path, bool forWriting) {
    const lab::Faults& faults = Phone::Current()->GetFaults();
    const std::optional<NodeFault> fault = faults.OnNode(path);
    const NodeAccess::Kind kind = forWriting ? NodeAccess::Kind::kWrite : NodeAccess::Kind::kRead;
    if (Has(fault, NodeFault::Kind::kMissing)) return RecordFault(path, kind, "", ENOENT);
    const NodeFault::Kind closed =
        forWriting ? NodeFault::Kind::kUnwritable : NodeFault::Kind::kUnreadable;
    if (Has(fault, closed)) return RecordFault(path, kind, "", EACCES);
    if (Has(fault, NodeFault::Kind::kSlow)) faults.PassTime(fault->slowMs);
    return kernel.Open(path, forWriting);
}

// The file to read a node from.
std::string FileToRead(const Kernel& kernel, const std::string& path) {
    const auto fault = Phone::Current()->GetFaults().OnNode(path);
    return Has(fault, NodeFault::Kind::kShort) ? "/dev/null" : kernel.FileOf(path);
}

// Hands `text` to the node at `path` of the phone that is alive. Returns how much it took, or -1
// with errno.
ssize_t StoreTo(const std::string& path, const char* text, size_t length) {
    Kernel* const kernel = KernelFor(path.c_str());
    if (kernel == nullptr) {
        errno = ENODEV;
        return -1;
    }
    const std::string whole(text, length);
    const auto fault = Phone::Current()->GetFaults().OnNode(path);
    if (Has(fault, NodeFault::Kind::kShort)) {
        errno = RecordFault(path, NodeAccess::Kind::kWrite, whole, EIO);
        return static_cast<ssize_t>(length / 2);
    }
    const int error = Has(fault, NodeFault::Kind::kRefusing)
                          ? RecordFault(path, NodeAccess::Kind::kWrite, whole, EINVAL)
                          : kernel->Write(path, whole);
    if (error == 0) return static_cast<ssize_t>(length);
    errno = error;
    return -1;
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
    const ssize_t taken = StoreTo(*static_cast<std::string*>(cookie), text, length);
    return taken < 0 ? 0 : taken;  // 0 is what a cookie stream takes for a failure
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
    const int error = OpenNode(*kernel, path, forWriting);
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    if (std::strchr(mode, 'e') == nullptr) ++Phone::Current()->GetBreaches().inheritableNodes;
    if (!forWriting) return real(FileToRead(*kernel, path).c_str(), mode);
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
    const int error = OpenNode(*kernel, path, forWriting);
    if (error != 0) {
        errno = error;
        return -1;
    }
    if ((flags & O_CLOEXEC) == 0) ++Phone::Current()->GetBreaches().inheritableNodes;
    // The file keeps its text until the kernel has taken another.
    const int kept = flags & ~(O_TRUNC | O_CREAT | O_EXCL);
    const int fd =
        real((forWriting ? kernel->FileOf(path) : FileToRead(*kernel, path)).c_str(), kept);
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
    return StoreTo(*path, static_cast<const char*>(data), length);
}

int close(int fd) {
    static const auto real = lab::RealFunction<int(int)>("close");
    Nodes().Remove(fd);  // first: another thread may get the same number at once
    return real(fd);
}

}  // extern "C"

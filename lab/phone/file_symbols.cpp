// fopen, open, write, pwrite and close, as the plug-in finds them: a path of the phone's kernel
// reaches its nodes, any other path and file the C library.
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
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

using lab::Fail;
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

// How a program opens a node.
struct Opening {
    bool forWriting = false;
    bool creates = false;   // what is not there
    bool excludes = false;  // what is there
};

// Opens the node as the plug-in finds it. Returns 0 or the errno.
int OpenNode(Kernel& kernel, const std::string& path, const Opening& opening) {
    const lab::Faults& faults = Phone::Current()->GetFaults();
    const std::optional<NodeFault> fault = faults.OnNode(path);
    const NodeAccess::Kind kind =
        opening.forWriting ? NodeAccess::Kind::kWrite : NodeAccess::Kind::kRead;
    if (Has(fault, NodeFault::Kind::kMissing) || !kernel.Has(path)) {
        return RecordFault(path, kind, "", kernel.MissingError(path, opening.creates));
    }
    if (opening.creates && opening.excludes) return RecordFault(path, kind, "", EEXIST);
    const NodeFault::Kind closed =
        opening.forWriting ? NodeFault::Kind::kUnwritable : NodeFault::Kind::kUnreadable;
    if (Has(fault, closed)) return RecordFault(path, kind, "", EACCES);
    if (Has(fault, NodeFault::Kind::kSlow)) faults.PassTime(fault->slowMs);
    return kernel.Open(path, opening.forWriting);
}

// The file to read a node from.
std::string FileToRead(const Kernel& kernel, const std::string& path) {
    const auto fault = Phone::Current()->GetFaults().OnNode(path);
    return Has(fault, NodeFault::Kind::kShort) ? "/dev/null" : kernel.FileToRead(path);
}

// Hands `text` to the node at `path` of the phone that is alive. Returns how much it took, or -1
// with errno.
ssize_t StoreTo(const std::string& path, const char* text, size_t length, size_t offset) {
    Kernel* const kernel = KernelFor(path.c_str());
    if (kernel == nullptr) return Fail(ENODEV);
    const std::string whole(text, length);
    const auto fault = Phone::Current()->GetFaults().OnNode(path);
    if (Has(fault, NodeFault::Kind::kShort)) {
        errno = RecordFault(path, NodeAccess::Kind::kWrite, whole, EIO);
        return static_cast<ssize_t>(length / 2);
    }
    const ssize_t taken = Has(fault, NodeFault::Kind::kRefusing)
                              ? -RecordFault(path, NodeAccess::Kind::kWrite, whole, EINVAL)
                              : kernel->WriteAt(path, whole, offset);
    return taken < 0 ? Fail(static_cast<int>(-taken)) : taken;
}

// A node that is open for writing, and how much was written.
struct OpenNodeFile {
    std::string path;
    size_t offset = 0;
};

// The nodes that are open for writing by descriptor.
class OpenNodes {
  public:
    void Add(int fd, const std::string& path) {
        std::lock_guard<std::mutex> guard(mMutex);
        mFiles[fd] = {path, 0};
        mCount = mFiles.size();
    }

    // Without any open node this takes no lock: it stands in the way of every write and close.
    std::optional<OpenNodeFile> Find(int fd) {
        if (mCount == 0) return std::nullopt;
        std::lock_guard<std::mutex> guard(mMutex);
        const auto found = mFiles.find(fd);
        return found == mFiles.end() ? std::nullopt : std::optional(found->second);
    }

    void Advance(int fd, ssize_t taken) {
        if (taken <= 0) return;
        std::lock_guard<std::mutex> guard(mMutex);
        const auto found = mFiles.find(fd);
        if (found != mFiles.end()) found->second.offset += static_cast<size_t>(taken);
    }

    void Remove(int fd) {
        if (mCount == 0) return;
        std::lock_guard<std::mutex> guard(mMutex);
        mFiles.erase(fd);
        mCount = mFiles.size();
    }

  private:
    std::atomic<size_t> mCount{0};
    std::mutex mMutex;
    std::map<int, OpenNodeFile> mFiles;
};

// Never destroyed: other destructors of the program may still write and close.
OpenNodes& Nodes() {
    static auto* const nodes = new OpenNodes;
    return *nodes;
}

// A stream writes the rest of what was taken in part, as it does with a file.
ssize_t WriteCookie(void* cookie, const char* text, size_t length) {
    auto& file = *static_cast<OpenNodeFile*>(cookie);
    size_t written = 0;
    while (written < length) {
        const ssize_t taken = StoreTo(file.path, text + written, length - written, file.offset);
        if (taken <= 0) return 0;  // what a cookie stream takes for a failure
        written += static_cast<size_t>(taken);
        file.offset += static_cast<size_t>(taken);
    }
    return static_cast<ssize_t>(written);
}

int CloseCookie(void* cookie) {
    delete static_cast<OpenNodeFile*>(cookie);
    return 0;
}

}  // namespace

extern "C" {

// A node is read from its file. It is written through a stream that hands the text to the kernel
// when it is flushed, so that a refusal shows where it does on a phone: when the stream is closed.
FILE* fopen(const char* path, const char* mode) {
    static const auto real = lab::RealFunction<FILE*(const char*, const char*)>("fopen");
    Kernel* const kernel = KernelFor(path);
    if (kernel == nullptr) return real(path, mode);
    const bool forWriting = std::strpbrk(mode, "wa+") != nullptr;
    const bool creates = std::strpbrk(mode, "wa") != nullptr;
    const bool excludes = std::strchr(mode, 'x') != nullptr;
    const int error = OpenNode(*kernel, path, {forWriting, creates, excludes});
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    if (std::strchr(mode, 'e') == nullptr) ++Phone::Current()->GetBreaches().inheritableNodes;
    if (!forWriting) return real(FileToRead(*kernel, path).c_str(), mode);
    auto* const file = new OpenNodeFile{path};
    FILE* const stream = fopencookie(file, "w", {nullptr, WriteCookie, nullptr, CloseCookie});
    if (stream == nullptr) delete file;
    return stream;
}

int open(const char* path, int flags, ...) {
    static const auto real = lab::RealFunction<int(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    Kernel* const kernel = KernelFor(path);
    if (kernel == nullptr) return real(path, flags, mode);
    const bool forWriting = (flags & O_ACCMODE) != O_RDONLY;
    const int error =
        OpenNode(*kernel, path, {forWriting, (flags & O_CREAT) != 0, (flags & O_EXCL) != 0});
    if (error != 0) return Fail(error);
    if ((flags & O_CLOEXEC) == 0) ++Phone::Current()->GetBreaches().inheritableNodes;
    // The file keeps its text until the kernel has taken another.
    const int kept = flags & ~(O_TRUNC | O_CREAT | O_EXCL);
    const int fd =
        real((forWriting ? kernel->FileOf(path) : FileToRead(*kernel, path)).c_str(), kept);
    if (fd >= 0 && forWriting) Nodes().Add(fd, path);
    return fd;
}

ssize_t write(int fd, const void* data, size_t length) {
    static const auto real = lab::RealFunction<ssize_t(int, const void*, size_t)>("write");
    const std::optional<OpenNodeFile> file = Nodes().Find(fd);
    if (!file) return real(fd, data, length);
    const ssize_t taken = StoreTo(file->path, static_cast<const char*>(data), length, file->offset);
    Nodes().Advance(fd, taken);
    return taken;
}

ssize_t pwrite(int fd, const void* data, size_t length, off_t offset) {
    static const auto real = lab::RealFunction<ssize_t(int, const void*, size_t, off_t)>("pwrite");
    const std::optional<OpenNodeFile> file = Nodes().Find(fd);
    if (!file) return real(fd, data, length, offset);
    if (offset < 0) return Fail(EINVAL);
    return StoreTo(file->path, static_cast<const char*>(data), length, static_cast<size_t>(offset));
}

int close(int fd) {
    static const auto real = lab::RealFunction<int(int)>("close");
    Nodes().Remove(fd);  // first: another thread may get the same number at once
    return real(fd);
}

// Where offsets have 64 bits anyway these are the same functions, as in the C library.
FILE* fopen64(const char* path, const char* mode) __attribute__((alias("fopen")));
int open64(const char* path, int flags, ...) __attribute__((alias("open")));
ssize_t pwrite64(int fd, const void* data, size_t length, off64_t offset)
    __attribute__((alias("pwrite")));

}  // extern "C"

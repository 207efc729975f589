#include "lab/pictures/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <streambuf>
#include <system_error>

#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

// Writes to a descriptor and remembers what went wrong.
class DescriptorBuffer : public std::streambuf {
  public:
    explicit DescriptorBuffer(int descriptor) : mDescriptor(descriptor) {
        setp(mBytes.data(), mBytes.data() + mBytes.size());
    }

    int Error() const { return mError; }

  protected:
    int sync() override {
        for (const char* next = pbase(); next != pptr() && mError == 0;) {
            const ssize_t written = write(mDescriptor, next, static_cast<size_t>(pptr() - next));
            if (written >= 0) {
                next += written;
            } else if (errno != EINTR) {
                mError = errno;
            }
        }
        setp(mBytes.data(), mBytes.data() + mBytes.size());
        return mError == 0 ? 0 : -1;
    }

    int overflow(int letter) override {
        if (sync() != 0) return traits_type::eof();
        if (letter != traits_type::eof()) sputc(static_cast<char>(letter));
        return traits_type::not_eof(letter);
    }

  private:
    const int mDescriptor;
    int mError = 0;
    std::array<char, 65536> mBytes{};
};

// The files that must not outlive the program, where the handler of a signal may read them.
struct Unfinished {
    std::atomic<bool> isUsed = false;
    std::array<char, PATH_MAX> path{};
};
std::array<Unfinished, 16> unfinishedFiles;

void RemoveUnfinished(int signal) {
    for (const Unfinished& file : unfinishedFiles) {
        if (file.isUsed) unlink(file.path.data());
    }
    std::raise(signal);  // as the default has it
}

// Leaves alone what ignores a signal, as nohup does, or has a handler of its own.
void RemoveUnfinishedOnSignals() {
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGABRT, SIGSEGV}) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) continue;
        action.sa_handler = RemoveUnfinished;
        action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
        sigaction(signal, &action, nullptr);
    }
    // A limit of a file's size is a failed write like that of a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

void AddUnfinished(const std::string& path) {
    for (Unfinished& file : unfinishedFiles) {
        if (file.isUsed || path.size() >= file.path.size()) continue;
        std::memcpy(file.path.data(), path.c_str(), path.size() + 1);
        file.isUsed = true;
        return;
    }
}

void DropUnfinished(const std::string& path) {
    for (Unfinished& file : unfinishedFiles) {
        if (file.isUsed && path == file.path.data()) file.isUsed = false;
    }
}

// A copy of the descriptor by which the program has the file open for writing, as with /dev/stdout;
// -1 when there is none. The copy goes on where the other stands.
int CopyOfOpen(const struct stat& facts) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        const int descriptor = std::atoi(entry.path().filename().c_str());
        struct stat other {};
        if (fstat(descriptor, &other) != 0 || other.st_dev != facts.st_dev ||
            other.st_ino != facts.st_ino || (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDONLY) {
            continue;
        }
        return fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    }
    return -1;
}

}  // namespace

std::string FileBehind(const std::string& path) {
    namespace fs = std::filesystem;
    constexpr int kMostLinks = 40;
    fs::path file(path);
    std::error_code error;
    for (int i = 0; i < kMostLinks && fs::is_symlink(file, error); ++i) {
        // What stands in /proc for an open file may have no path.
        const fs::path next = file.parent_path() / fs::read_symlink(file, error);
        if (error) break;
        file = next;
    }
    const fs::path folder = fs::canonical(file.has_parent_path() ? file.parent_path() : ".", error);
    return error ? path : (folder / file.filename()).string();
}

OutputFile::OutputFile(std::string path) : mPath(std::move(path)) {
    struct stat facts {};
    const bool isThere = stat(mPath.c_str(), &facts) == 0;
    if (!isThere && errno != ENOENT) Fail(errno);
    if (isThere) mDescriptor = CopyOfOpen(facts);
    if (mDescriptor >= 0) return;
    if (!isThere || S_ISREG(facts.st_mode)) {
        OpenBeside(isThere ? &facts : nullptr);
    } else {
        mDescriptor = open(mPath.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
        if (mDescriptor < 0) Fail(errno);
    }
}

void OutputFile::OpenBeside(const struct ::stat* old) {
    // To replace a file needs no right to write to it.
    if (old != nullptr && access(mPath.c_str(), W_OK) != 0) Fail(errno);
    mTarget = FileBehind(mPath);
    const std::filesystem::path target(mTarget);
    if (target.filename().empty()) Fail(EISDIR);
    if (target.filename().string().size() > NAME_MAX) Fail(ENAMETOOLONG);
    RemoveUnfinishedOnSignals();
    static int count = 0;
    do {
        mBeside = target.parent_path() / (".tarquel-lab-" + std::to_string(getpid()) + "-" +
                                          std::to_string(++count) + ".part");
        AddUnfinished(mBeside);
        mDescriptor = open(mBeside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (mDescriptor >= 0) break;
        DropUnfinished(mBeside);
    } while (errno == EEXIST);
    if (mDescriptor < 0) Fail(errno, old == nullptr ? "" : "no file can be made beside it: ");
    if (old == nullptr) return;
    // The owner is kept where the user may give files away.
    if (fchown(mDescriptor, old->st_uid, old->st_gid) == 0 || old->st_uid == geteuid()) {
        fchmod(mDescriptor, old->st_mode & 07777);
    }
}

OutputFile::~OutputFile() {
    if (mDescriptor >= 0) close(mDescriptor);
    if (mBeside.empty()) return;
    unlink(mBeside.c_str());
    DropUnfinished(mBeside);
}

void OutputFile::Fill(const std::function<void(std::ostream&)>& write) {
    // What was printed before stands before.
    if (mBeside.empty()) std::cout.flush();
    DescriptorBuffer buffer(mDescriptor);
    std::ostream out(&buffer);
    write(out);
    out.flush();
    if (buffer.Error() != 0) Fail(buffer.Error());
    if (mBeside.empty()) return;
    const int closed = close(mDescriptor);
    mDescriptor = -1;
    if (closed != 0 || rename(mBeside.c_str(), mTarget.c_str()) != 0) Fail(errno);
    DropUnfinished(mBeside);
    mBeside.clear();
}

void WriteOutput(const std::string& path, const std::function<void(std::ostream&)>& write) {
    if (path.empty() || path == "-") {
        write(std::cout);
    } else {
        OutputFile(path).Fill(write);
    }
}

void OutputFile::Fail(int error, const std::string& why) const {
    throw InputError(mPath, 0, 0,
                     "cannot be written: " + why + std::generic_category().message(error));
}

}  // namespace lab

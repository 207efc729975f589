#include "lab/pictures/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
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

}  // namespace

OutputFile::OutputFile(std::string path) : mPath(std::move(path)) {
    mDescriptor = open(mPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    mIsNew = mDescriptor >= 0;
    if (!mIsNew && errno == EEXIST) mDescriptor = open(mPath.c_str(), O_WRONLY | O_CLOEXEC);
    if (mDescriptor < 0) Fail(errno);
}

OutputFile::~OutputFile() {
    close(mDescriptor);
    if (mIsNew && !mIsFilled) unlink(mPath.c_str());
}

void OutputFile::Fill(const std::function<void(std::ostream&)>& write) {
    struct stat facts {};
    const bool isFile = fstat(mDescriptor, &facts) == 0 && S_ISREG(facts.st_mode);
    if (isFile && ftruncate(mDescriptor, 0) != 0) Fail(errno);
    DescriptorBuffer buffer(mDescriptor);
    std::ostream out(&buffer);
    write(out);
    out.flush();
    if (buffer.Error() != 0) Fail(buffer.Error());
    mIsFilled = true;
}

void OutputFile::Fail(int error) const {
    throw InputError(mPath, 0, 0, "cannot be written: " + std::generic_category().message(error));
}

}  // namespace lab

#include "lab/logcat/capture_input.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "lab/names/text.h"
#include "lab/yaml/input_text.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

// Longer than any line that logcat prints; what is beyond it is passed over.
constexpr size_t kLongestLine = size_t{16} * 1024;

constexpr size_t kBlock = size_t{256} * 1024;
constexpr int kQuietMs = 200;

constexpr std::string_view kZipMark = "PK\x03\x04";
constexpr std::string_view kPackedMarks[] = {
    "\x1F\x8B",                            // gzip
    std::string_view("\xFD\x37zXZ\0", 6),  // xz
    "\x28\xB5\x2F\xFD",                    // zstd
};
constexpr size_t kLongestMark = 6;

bool IsText(const std::string& name) {
    return name.ends_with(".txt") || name.ends_with(".log");
}

bool IsBugReport(const std::string& name) {
    const std::string file = std::filesystem::path(name).filename().string();
    return file.starts_with("bugreport") && file.ends_with(".txt");
}

}  // namespace

CaptureInput::CaptureInput(const std::string& name, Access access)
    : mName(name), mBuffer(kBlock + kLongestLine + 1) {
    mFile = name == kStandardInput ? dup(STDIN_FILENO) : open(name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (mFile < 0 || fstat(mFile, &status) != 0) Fail(std::strerror(errno));
    if (S_ISDIR(status.st_mode)) Fail(std::strerror(EISDIR));
    // What stands before the place where standard input is has been read by somebody else.
    mIsFile = S_ISREG(status.st_mode) && lseek(mFile, 0, SEEK_CUR) == 0;
    if (!mIsFile && access == Access::kTwice) Spool();
    Sniff();
    if (mForm == Form::kZip && !mIsFile) Spool();
    if (mForm == Form::kZip) mEntry = ChooseEntry();
    Unpack();
}

CaptureInput::~CaptureInput() {
    if (mArchive) archive_read_free(mArchive);
    if (mFile >= 0) close(mFile);
}

void CaptureInput::Fail(const std::string& message) const {
    throw InputError(mName, 0, 0, "cannot be read: " + message);
}

// Puts all that is still to come into a file that nobody else sees.
void CaptureInput::Spool() {
    std::FILE* file = std::tmpfile();
    if (!file) Fail(std::string("no temporary file for it: ") + std::strerror(errno));
    const int copy = fcntl(fileno(file), F_DUPFD_CLOEXEC, 0);
    std::fclose(file);
    for (int64_t count = 1; count > 0;) {
        count = ReadRaw(mBuffer.data(), kBlock);
        if (count < 0) Fail(std::strerror(errno));
        for (int64_t at = 0; at < count;) {
            const int64_t done = write(copy, mBuffer.data() + at, static_cast<size_t>(count - at));
            if (done < 0 && errno == EINTR) continue;
            if (done < 0) Fail(std::string("its temporary file: ") + std::strerror(errno));
            at += done;
        }
    }
    close(mFile);
    mFile = copy;
    mIsFile = true;
    lseek(mFile, 0, SEEK_SET);
}

void CaptureInput::Sniff() {
    std::string first(kLongestMark, '\0');
    size_t size = 0;
    for (int64_t count = 1; count > 0 && size < first.size(); size += static_cast<size_t>(count)) {
        count = ReadRaw(first.data() + size, first.size() - size);
        if (count < 0) Fail(std::strerror(errno));
    }
    first.resize(size);
    const std::string_view text(first);
    if (text.starts_with(kZipMark)) mForm = Form::kZip;
    for (const std::string_view mark : kPackedMarks) {
        if (text.starts_with(mark)) mForm = Form::kPacked;
    }
    if (mIsFile) {
        lseek(mFile, 0, SEEK_SET);
    } else {
        mSniffed = first;
    }
}

int64_t CaptureInput::Feed(archive* from, void* self, const void** bytes) {
    auto& input = *static_cast<CaptureInput*>(self);
    input.mFed.resize(kBlock);
    *bytes = input.mFed.data();
    const int64_t count = input.ReadRaw(input.mFed.data(), input.mFed.size());
    if (count < 0) archive_set_error(from, errno, "%s", std::strerror(errno));
    return count;
}

void CaptureInput::OpenArchive() {
    if (mArchive) archive_read_free(mArchive);
    mArchive = archive_read_new();
    int result = 0;
    if (mForm == Form::kZip) {
        archive_read_support_format_zip(mArchive);
        result = archive_read_open_fd(mArchive, mFile, kBlock);
    } else {
        archive_read_support_filter_all(mArchive);
        archive_read_support_format_raw(mArchive);
        archive_read_support_format_empty(mArchive);
        result = archive_read_open(mArchive, this, nullptr, &Feed, nullptr);
    }
    if (result != ARCHIVE_OK) Fail(archive_error_string(mArchive));
}

// The text of a bug report, else the only text.
std::string CaptureInput::ChooseEntry() {
    OpenArchive();
    std::vector<std::string> names;
    archive_entry* entry = nullptr;
    int result = 0;
    while ((result = archive_read_next_header(mArchive, &entry)) == ARCHIVE_OK) {
        const char* name = archive_entry_pathname(entry);
        if (name && archive_entry_filetype(entry) == AE_IFREG) names.emplace_back(name);
    }
    if (result != ARCHIVE_EOF && names.empty()) Fail(archive_error_string(mArchive));
    lseek(mFile, 0, SEEK_SET);
    const auto report = std::find_if(names.begin(), names.end(), IsBugReport);
    if (report != names.end()) return *report;
    std::vector<std::string> texts;
    std::copy_if(names.begin(), names.end(), std::back_inserter(texts), IsText);
    if (texts.size() == 1) return texts[0];
    if (names.size() == 1) return names[0];
    throw InputError(mName, 0, 0,
                     texts.empty() ? "this zip holds no bugreport-*.txt and no other text"
                                   : "this zip holds no bugreport-*.txt, but several texts: " +
                                         Join(texts) + "; unpack the one to be read");
}

// Begins with what is read: the file, or the right one of an archive.
void CaptureInput::Unpack() {
    if (mForm == Form::kPlain) return;
    OpenArchive();
    archive_entry* entry = nullptr;
    for (;;) {
        const int result = archive_read_next_header(mArchive, &entry);
        if (result == ARCHIVE_EOF && mForm == Form::kPacked) return;
        if (result != ARCHIVE_OK && result != ARCHIVE_WARN) Fail(archive_error_string(mArchive));
        const char* name = archive_entry_pathname(entry);
        if (mForm == Form::kPacked || (name && mEntry == name)) return;
    }
}

void CaptureInput::Rewind() {
    lseek(mFile, 0, SEEK_SET);
    mBegin = mEnd = 0;
    mIsAtEnd = mIsPassing = false;
    Unpack();
}

// Of the file itself; 0 at its end, -1 with errno set.
int64_t CaptureInput::ReadRaw(char* to, size_t count) {
    if (!mSniffed.empty()) {
        const size_t taken = std::min(count, mSniffed.size());
        std::copy_n(mSniffed.begin(), taken, to);
        mSniffed.erase(0, taken);
        return static_cast<int64_t>(taken);
    }
    for (;;) {
        const int64_t done = read(mFile, to, count);
        if (done >= 0 || errno != EINTR) return done;
    }
}

// Of what is packed in it.
int64_t CaptureInput::ReadBytes(char* to, size_t count) {
    if (mForm == Form::kPlain) {
        const int64_t done = ReadRaw(to, count);
        if (done < 0) Fail(std::strerror(errno));
        return done;
    }
    const int64_t done = archive_read_data(mArchive, to, count);
    if (done >= 0) return done;
    const char* message = archive_error_string(mArchive);
    mDamage = fmt::format("the packed data is damaged; nothing behind this line can be read ({})",
                          message ? message : "no reason given");
    return 0;
}

// Said once: what comes after it is waited for.
bool CaptureInput::IsQuiet() {
    if (mIsFile || mForm != Form::kPlain || !mSniffed.empty()) return false;
    pollfd waited{mFile, POLLIN, 0};
    mWasQuiet = !mWasQuiet && poll(&waited, 1, kQuietMs) == 0;
    return mWasQuiet;
}

// More bytes behind those that are not yet read; false at the end.
bool CaptureInput::Fill() {
    std::copy(mBuffer.begin() + static_cast<std::ptrdiff_t>(mBegin),
              mBuffer.begin() + static_cast<std::ptrdiff_t>(mEnd), mBuffer.begin());
    mEnd -= mBegin;
    mBegin = 0;
    const int64_t count = ReadBytes(mBuffer.data() + mEnd, mBuffer.size() - mEnd);
    mEnd += static_cast<size_t>(count);
    mIsAtEnd = count == 0;
    return count > 0;
}

CaptureInput::Reading CaptureInput::ReadLine(std::string_view& line) {
    size_t searched = 0;
    for (;;) {
        const char* const begin = mBuffer.data() + mBegin;
        const size_t size = mEnd - mBegin;
        const void* found = std::memchr(begin + searched, '\n', size - searched);
        if (!found && !mIsAtEnd && (size <= kLongestLine || mIsPassing)) {
            if (mIsPassing) mBegin = mEnd;
            searched = mEnd - mBegin;
            if (IsQuiet()) return Reading::kIdle;
            Fill();
            continue;
        }
        if (!found && size == 0) return Reading::kEnd;
        const size_t length = found ? static_cast<size_t>(static_cast<const char*>(found) - begin)
                                    : std::min(size, kLongestLine);
        mBegin += found ? length + 1 : size;
        const bool isRest = mIsPassing;
        mIsPassing = !found && !mIsAtEnd;
        if (isRest) {
            searched = 0;
            continue;
        }
        line = std::string_view(begin, std::min(length, kLongestLine));
        while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        return Reading::kLine;
    }
}

}  // namespace lab

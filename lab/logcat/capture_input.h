// The lines of a capture as it comes: a file, a pipe or standard input, packed or not.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct archive;

namespace lab {

class CaptureInput {
  public:
    enum class Access : uint8_t {
        kOnce,   // what comes through a pipe is read as it comes
        kTwice,  // Rewind() works: what comes through a pipe is put into a file without a name
                 // first
    };

    // Opens `name` ("-": standard input). What is packed is told by its first bytes, whatever its
    // name is: gzip, xz, zstd, and a zip that holds a bug report or one text. Throws InputError for
    // what cannot be read.
    CaptureInput(const std::string& name, Access access);
    ~CaptureInput();
    CaptureInput(const CaptureInput&) = delete;
    CaptureInput& operator=(const CaptureInput&) = delete;

    enum class Reading : uint8_t { kLine, kIdle, kEnd };

    // Reads up to the next newline, which is not kept; `line` holds until the next call. What is
    // beyond 16 KiB of a line is passed over. kIdle: nothing has come through the pipe for 0.2 s.
    Reading ReadLine(std::string_view& line);

    // False for what comes through a pipe and is read as it comes.
    bool CanRewind() const { return mIsFile; }
    void Rewind();

    // What of a zip is read, "bugreport-....txt"; empty where nothing is chosen.
    const std::string& Entry() const { return mEntry; }

    // What is wrong with packed data that could be read in part; empty when nothing is.
    const std::string& Damage() const { return mDamage; }

  private:
    enum class Form : uint8_t { kPlain, kPacked, kZip };

    void Spool();
    void Sniff();
    void Unpack();
    std::string ChooseEntry();
    void OpenArchive();
    bool Fill();
    int64_t ReadBytes(char* to, size_t count);
    int64_t ReadRaw(char* to, size_t count);
    bool IsQuiet();
    static int64_t Feed(archive* from, void* self, const void** bytes);
    [[noreturn]] void Fail(const std::string& message) const;

    const std::string mName;
    int mFile = -1;
    bool mIsFile = false;
    Form mForm = Form::kPlain;
    std::string mEntry;
    std::string mDamage;
    archive* mArchive = nullptr;
    std::vector<char> mFed;     // what the archive reads next
    std::string mSniffed;       // read of a pipe to tell what it is
    std::vector<char> mBuffer;  // mBegin to mEnd is not yet read
    size_t mBegin = 0;
    size_t mEnd = 0;
    bool mWasQuiet = false;
    bool mIsAtEnd = false;
    bool mIsPassing = false;  // over the rest of a line that is too long
};

}  // namespace lab

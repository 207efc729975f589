// A file that a command writes its result to.
#pragma once

#include <functional>
#include <ostream>
#include <string>

struct stat;

namespace lab {

// Tried when it is made, so that a long run is not in vain, and filled at the end. What cannot be
// made or written throws InputError with the path and the reason.
//
// A file appears whole or not at all, and an old one keeps its content until then: the text is
// written beside it under another name, which goes when nothing comes of it, also when a signal
// ends the program. What is no file of its own (a pipe, a terminal, /dev/stdout) is written to
// directly.
class OutputFile {
  public:
    explicit OutputFile(std::string path);
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Replaces the content by what `write` gives. Once.
    void Fill(const std::function<void(std::ostream&)>& write);

  private:
    void OpenBeside(const struct ::stat* old);
    [[noreturn]] void Fail(int error, const std::string& why = "") const;

    const std::string mPath;
    std::string mTarget;  // mPath with its links followed
    std::string mBeside;  // where it is written meanwhile; empty when directly
    int mDescriptor = -1;
};

// The same for what may go to standard output: an empty path or "-".
void WriteOutput(const std::string& path, const std::function<void(std::ostream&)>& write);

// `path` with every link followed, also where it leads to nothing yet.
std::string FileBehind(const std::string& path);

}  // namespace lab

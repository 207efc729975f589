// A file that a command writes its result to.
#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace lab {

// Opens the file when it is made, so that a long run is not in vain, and fills it at the end. What
// cannot be opened or written throws InputError with the path and the reason. A file that was new
// and is never filled is removed again; an old one then keeps its content.
class OutputFile {
  public:
    explicit OutputFile(std::string path);
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Replaces the content by what `write` gives.
    void Fill(const std::function<void(std::ostream&)>& write);

  private:
    [[noreturn]] void Fail(int error) const;

    const std::string mPath;
    int mDescriptor = -1;
    bool mIsNew = false;
    bool mIsFilled = false;
};

}  // namespace lab

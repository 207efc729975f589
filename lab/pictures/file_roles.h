// Which files a command reads and which it writes, so that it never writes over its own input.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace lab {

// A file is the same by whatever path, link or descriptor it is named. Standard output counts as
// written when it is a file. Terminals, /dev/null and the like may be named as often as wanted, and
// so may standard output as /dev/stdout.
class FileRoles {
  public:
    FileRoles();

    // `path` is read, or written; `what` names it in messages: "scenario", "--report". "-" is
    // standard input, an empty path is nothing. Throws InputError when one file is to be both, or
    // to be written twice.
    void Reads(const std::string& path, const std::string& what);
    void Writes(const std::string& path, const std::string& what);

    // Nothing is written but what goes to standard output.
    bool WritesNothing() const { return mNamed == 0; }

  private:
    struct File {
        std::string given;
        std::string path;  // links followed
        bool isThere = false;
        unsigned long device = 0;
        unsigned long inode = 0;
        std::string what;
        bool isWritten = false;
    };
    bool IsSame(const File& a, const File& b) const;
    void Add(const std::string& path, const std::string& what, bool isWritten);

    std::vector<File> mFiles;
    size_t mNamed = 0;  // of those that are written
};

}  // namespace lab

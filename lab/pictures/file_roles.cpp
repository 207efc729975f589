#include "lab/pictures/file_roles.h"

#include <sys/stat.h>
#include <unistd.h>

#include "lab/pictures/output_file.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

constexpr char kStandardOutput[] = "standard output";

// A path that means an open file rather than one of the disk.
bool NamesADescriptor(const std::string& path) {
    return path.starts_with("/dev/") || path.starts_with("/proc/");
}

}  // namespace

FileRoles::FileRoles() {
    struct stat facts {};
    if (fstat(STDOUT_FILENO, &facts) != 0 || !S_ISREG(facts.st_mode)) return;
    mFiles.push_back(
        {kStandardOutput, "", true, facts.st_dev, facts.st_ino, kStandardOutput, true});
}

void FileRoles::Reads(const std::string& path, const std::string& what) {
    if (!path.empty()) Add(path, what, false);
}

void FileRoles::Writes(const std::string& path, const std::string& what) {
    if (path.empty() || path == "-") return;
    Add(path, what, true);
    ++mNamed;
}

bool FileRoles::IsSame(const File& a, const File& b) const {
    if (a.isThere && b.isThere) return a.device == b.device && a.inode == b.inode;
    return !a.isThere && !b.isThere && a.path == b.path;
}

void FileRoles::Add(const std::string& path, const std::string& what, bool isWritten) {
    const bool isInput = path == "-";
    File file{isInput ? "standard input" : path, FileBehind(path), false, 0, 0, what, isWritten};
    struct stat facts {};
    file.isThere = (isInput ? fstat(STDIN_FILENO, &facts) : stat(path.c_str(), &facts)) == 0;
    if (file.isThere && S_ISCHR(facts.st_mode)) return;
    file.device = facts.st_dev;
    file.inode = facts.st_ino;
    for (const File& other : mFiles) {
        if (!IsSame(file, other) || !(isWritten || other.isWritten)) continue;
        if (isWritten && other.isWritten) {
            if (other.given == kStandardOutput && NamesADescriptor(path)) continue;
            throw InputError(
                path, 0, 0,
                other.what + " and " + what + " would both write this file; give each its own");
        }
        const File& read = isWritten ? other : file;
        const File& written = isWritten ? file : other;
        // Nobody would know it again by another link.
        const std::string name = read.given == written.given ? "" : " " + read.given;
        throw InputError(written.given, 0, 0,
                         "this is the " + read.what + name + " that is read, and " + written.what +
                             " would write over it; give another file");
    }
    mFiles.push_back(std::move(file));
}

}  // namespace lab

#include "lab/yaml/input_text.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <system_error>

#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

std::string ReadStream(std::istream& stream, bool isOpen, const std::string& name,
                       const std::string& what) {
    std::ostringstream text;
    // A folder opens and fails at the first read only. An empty file sets failbit, which is fine.
    if (isOpen) text << stream.rdbuf();
    if (!isOpen || text.bad() || errno == EISDIR) {
        throw InputError(
            name, 0, 0,
            what + "cannot be read: " + std::generic_category().message(errno ? errno : EIO));
    }
    return std::move(text).str();
}

// "/dev/stdin" and "/dev/fd/63" lead to what is open, which may be no file; a path may lead there
// through links.
bool IsReadOnce(const std::string& name) {
    std::error_code ignored;
    return name == kStandardInput || fs::is_other(fs::status(name, ignored));
}

}  // namespace

bool IsInput(const std::string& name) {
    if (name == kStandardInput) return true;
    std::error_code ignored;
    const fs::file_status status = fs::status(name, ignored);
    return fs::exists(status) && !fs::is_directory(status);
}

std::string ReadInput(const std::string& name, const std::string& what) {
    static std::mutex mutex;
    static std::map<std::string, std::string> read;
    const auto readNow = [&] {
        errno = 0;
        if (name == kStandardInput) return ReadStream(std::cin, true, name, what);
        std::ifstream stream(name, std::ios::binary);
        return ReadStream(stream, stream.is_open(), name, what);
    };
    if (!IsReadOnce(name)) return readNow();
    const std::lock_guard lock(mutex);
    const auto found = read.find(name);
    return found != read.end() ? found->second : read.emplace(name, readNow()).first->second;
}

}  // namespace lab

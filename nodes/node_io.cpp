#include "nodes/node_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/log.h"

namespace tarquel {

namespace {

// Descriptors and not streams: a stream takes two pieces of heap and a call more for each node.

// Reads what stands first in the file, as a scan for one decimal integer does: 1 for a number, 0
// for another text, EOF for blanks alone, an empty file and one that cannot be read.
int ReadNumber(int fd, long long& number) {
    // A node's text is short; what is longer has its number in front.
    std::array<char, 128> text;
    const ssize_t length = read(fd, text.data(), text.size() - 1);
    if (length <= 0) return EOF;
    text[static_cast<size_t>(length)] = '\0';
    char* end = nullptr;
    // Wider than the target: a number that does not fit must not wrap.
    number = std::strtoll(text.data(), &end, 10);
    if (end != text.data()) return 1;
    return std::strspn(text.data(), " \t\n\v\f\r") == static_cast<size_t>(length) ? EOF : 0;
}

}  // namespace

void NodeIo::ReadNode(const NodePaths& paths, int* target) const {
    if (target == nullptr) return;
    NodePaths::Buffer buffer;
    for (int i = 0; i < paths.Count(); ++i) {
        const char* const path = paths.Path(i, buffer);
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            TARQUEL_LOGE("tarquel: read node open %s error: no node/permission\n", path);
            continue;
        }
        long long number = 0;
        const int result = ReadNumber(fd, number);
        if (result > 0) *target = static_cast<int>(std::clamp<long long>(number, INT_MIN, INT_MAX));
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                        "tarquel: read node ret = %d, node = %s, config = %d\n", result, path,
                        *target);
        if (result <= 0) {
            TARQUEL_LOGE("tarquel: fscanf_s failed, ret = %d, node = %s\n", result, path);
        }
        close(fd);
        return;
    }
}

void NodeIo::WriteNode(const NodePaths& paths, int value) const {
    NodePaths::Buffer buffer;
    for (int i = 0; i < paths.Count(); ++i) {
        const char* const path = paths.Path(i, buffer);
        const int fd = open(path, O_WRONLY | O_TRUNC | O_CLOEXEC);
        if (fd < 0) {
            TARQUEL_LOGE("tarquel: write node open %s error: no node/permission\n", path);
            continue;
        }
        std::array<char, 16> text;
        const char* const end = std::to_chars(text.begin(), text.end(), value).ptr;
        const ssize_t length = end - text.data();
        // The kernel judges the value when it gets it; as printing goes, all of it or a failure.
        const bool isTaken = write(fd, text.data(), static_cast<size_t>(length)) == length;
        const int result = isTaken ? static_cast<int>(length) : -1;
        TARQUEL_LOGI_IF(mSwitches.IsVerbose(),
                        "tarquel: write node ret = %d, node = %s, config = %d\n", result, path,
                        value);
        if (result <= 0) {
            TARQUEL_LOGE("tarquel: fprintf failed, ret = %d, node = %s\n", result, path);
        }
        close(fd);
        return;
    }
}

int WriteNodesValue(const char* path, const char* value) {
    if (path == nullptr || value == nullptr || value[0] == '\0') {
        TARQUEL_LOGE("tarQuel: WriteNodesValue invalid params!\n");
        return -1;
    }
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        TARQUEL_LOGE("tarQuel: WriteNodesValue open %s fail errno(%d)!\n", path, errno);
        return -1;
    }
    const size_t length = std::strlen(value);
    errno = 0;
    const ssize_t written = write(fd, value, length);
    if (written < 0 || static_cast<size_t>(written) != length) {
        TARQUEL_LOGE("tarQuel: WriteNodesValue write %s to %s fail errno(%d)!\n", value, path,
                     errno);
        close(fd);
        return -1;
    }
    close(fd);
    return 0;
}

}  // namespace tarquel

#include "actions/inter_freq.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/command_ids.h"
#include "base/log.h"
#include "nodes/inter_path_table.h"

namespace tarquel {

int DoInterFreqAction(const QcomAction& action, const int* payload) {
    if (payload == nullptr) {
        TARQUEL_LOGE("tarQuel: invalid scene params cmdId is %d\n", action.cmdId);
        return -1;
    }
    if (payload[0] == kEventOff) return 0;
    if (action.tagLen < 1) return -1;
    const auto pairs = static_cast<size_t>(action.tagLen);
    if (pairs > action.interList.size() / 2) {
        TARQUEL_LOGE("tarQuel: invalid scene list cmdId is %d, tagLen is %d\n", action.cmdId,
                     action.tagLen);
        return -1;
    }

    int result = -1;
    for (size_t i = 0; i < pairs; ++i) {
        const std::string& name = action.interList[2 * i];
        const std::string& value = action.interList[2 * i + 1];
        // "priority" is allowed in the element and names no node.
        const char* path = FindInterPath(name);
        if (path == nullptr) continue;
        result = WriteNodesValue(path, value.c_str());
        if (result != 0) {
            TARQUEL_LOGE("tarQuel: write node failed, tag=%s, value=%s\n", name.c_str(),
                         value.c_str());
            return result;
        }
    }
    return result;
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

#include "actions/inter_freq.h"

#include "base/ids.h"
#include "base/log.h"
#include "nodes/inter_path_table.h"
#include "nodes/node_io.h"

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

}  // namespace tarquel

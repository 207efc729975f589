#include "nodes/node_io.h"

#include <algorithm>
#include <climits>
#include <cstdio>

#include "platform/log.h"
#include "tarquel/securec.h"

namespace tarquel {

void NodeIo::ReadNode(const NodeList& paths, int* target) const {
    if (target == nullptr) return;
    for (const std::string& path : paths) {
        FILE* file = std::fopen(path.c_str(), "r");
        if (file == nullptr) {
            TARQUEL_LOGE("tarquel: read node open %s error: no node/permission\n", path.c_str());
            continue;
        }
        // Wider than the target: a number that does not fit must not wrap.
        long long value = 0;
        const int result = fscanf_s(file, "%lld", &value);
        if (result > 0) *target = static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
        if (mSwitches.IsVerbose()) {
            TARQUEL_LOGI("tarquel: read node ret = %d, node = %s, config = %d\n", result,
                         path.c_str(), *target);
        }
        if (result <= 0) {
            TARQUEL_LOGE("tarquel: fscanf_s failed, ret = %d, node = %s\n", result, path.c_str());
        }
        std::fclose(file);
        return;
    }
}

void NodeIo::WriteNode(const NodeList& paths, int value) const {
    for (const std::string& path : paths) {
        FILE* file = std::fopen(path.c_str(), "w");
        if (file == nullptr) {
            TARQUEL_LOGE("tarquel: write node open %s error: no node/permission\n", path.c_str());
            continue;
        }
        // The kernel judges a value when it gets it: unbuffered, so that the result tells.
        std::setvbuf(file, nullptr, _IONBF, 0);
        const int result = std::fprintf(file, "%d", value);
        if (mSwitches.IsVerbose()) {
            TARQUEL_LOGI("tarquel: write node ret = %d, node = %s, config = %d\n", result,
                         path.c_str(), value);
        }
        if (result <= 0) {
            TARQUEL_LOGE("tarquel: fprintf failed, ret = %d, node = %s\n", result, path.c_str());
        }
        std::fclose(file);
        return;
    }
}

}  // namespace tarquel

#include "nodes/node_paths.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "base/log.h"
#include "nodes/node_path_table.h"

namespace tarquel {

namespace {

constexpr int kMaxClusterCpus = 256;

constexpr size_t kCpuNumberMax = std::numeric_limits<int>::digits10 + 2;  // with its sign
static_assert(kCpuPrefix.size() + kCpuNumberMax + NodePaths::kSuffixMax <
              std::tuple_size_v<NodePaths::Buffer>);

template <size_t N>
constexpr bool FitSuffixes(const std::array<ClusterNode, N>& rows) {
    return std::all_of(rows.begin(), rows.end(), [](const ClusterNode& row) {
        return row.suffix.size() <= NodePaths::kSuffixMax;
    });
}
static_assert(FitSuffixes(node_tables::kCpuinfoNodes) && FitSuffixes(node_tables::kCpuFreqNodes) &&
              FitSuffixes(node_tables::kOnlineCoreNodes));

}  // namespace

NodePaths NodePaths::OfCluster(const CpuRange& cpus, std::string_view suffix) {
    NodePaths paths;
    const int64_t count = int64_t{cpus.last} - cpus.first + 1;
    if (count > kMaxClusterCpus) {
        TARQUEL_LOGE("tarquel: cpu range %d-%d is too wide\n", cpus.first, cpus.last);
        return paths;
    }
    paths.mText = suffix;
    paths.mCount = static_cast<int>(std::max<int64_t>(count, 0));
    paths.mFirstCpu = cpus.first;
    return paths;
}

const char* NodePaths::Path(int index, Buffer& buffer) const {
    if (mIsFixed) return mText.data();
    char* end = std::copy(kCpuPrefix.begin(), kCpuPrefix.end(), buffer.data());
    end = std::to_chars(end, buffer.data() + buffer.size(), mFirstCpu + index).ptr;
    end = std::copy(mText.begin(), mText.end(), end);
    *end = '\0';
    return buffer.data();
}

}  // namespace tarquel

#include "bench/facts.h"

#include <filesystem>
#include <fstream>
#include <string>

#include "bench/allocations.h"
#include "bench/configuration.h"
#include "tests/support/elf_file.h"

namespace bench {

namespace {

// The sum of a field of /proc/self/smaps over the mappings of the library, in bytes.
long long MappedBytes(const std::string& field) {
    constexpr long long kBytesPerKib = 1024;
    std::ifstream maps("/proc/self/smaps");
    long long sum = 0;
    bool isLibrary = false;
    for (std::string line; std::getline(maps, line);) {
        const bool isHeader = line.find(':') > line.find('-');
        if (isHeader) {
            isLibrary = line.find("/libtarquel_qcom.so") != std::string::npos;
        } else if (isLibrary && line.compare(0, field.size() + 1, field + ":") == 0) {
            sum += std::stoll(line.substr(field.size() + 1)) * kBytesPerKib;
        }
    }
    return sum;
}

}  // namespace

long long WarmAllocations(const Request& request) {
    constexpr int kWarmUps = 3;
    request.enter();
    for (int i = 0; i < kWarmUps; ++i) request.run();
    const size_t before = CountAllocations();
    request.run();
    const size_t after = CountAllocations();
    request.leave();
    return static_cast<long long>(after - before);
}

std::vector<Fact> MeasureMemory(Plugin& plugin) {
    constexpr long long kMostAfterStart = 12 * 1024;
    constexpr long long kMostForCommands = 400 * 1000;
    std::vector<Fact> facts;
    plugin.DescribeClusters();
    long long before = HeapBytesHeld();
    plugin.Initialize();
    facts.push_back(
        {"heap held after Initialize()", HeapBytesHeld() - before, "bytes", kMostAfterStart});
    facts.push_back({"library resident", MappedBytes("Rss"), "bytes"});
    facts.push_back({"library resident, the process's own", MappedBytes("Anonymous"), "bytes"});

    constexpr int kCommands = 1000;
    Configuration configuration(kCommands);
    before = HeapBytesHeld();
    ActionMap* const actions = plugin.Parse(configuration.Commands());
    facts.push_back({"heap held by 1,000 commands of 8 keys", HeapBytesHeld() - before, "bytes",
                     kMostForCommands});
    FreeActions(actions);
    return facts;
}

std::vector<Fact> DescribeLibraryFile() {
    constexpr long long kMostBytes = 150 * 1024;
    constexpr long long kMostRelocations = 200;
    constexpr long long kCompilersOwn = 1;
    const ElfFile file(TARQUEL_PLUGIN);
    const auto sum = [&file](int64_t tag) {
        long long total = 0;
        for (const uint64_t value : file.Dynamic(tag)) total += static_cast<long long>(value);
        return total;
    };
    const auto size = static_cast<long long>(std::filesystem::file_size(TARQUEL_STRIPPED_PLUGIN));
    return {
        {"library file, stripped", size, "bytes", kMostBytes},
        {"relative relocations", sum(DT_RELACOUNT), "", kMostRelocations},
        {"initialisers, the compiler's own included",
         sum(DT_INIT_ARRAYSZ) / static_cast<long long>(sizeof(void*)), "", kCompilersOwn},
    };
}

}  // namespace bench

#include "bench/configuration.h"

#include <string>

#include "loader/vocabulary_table.h"

namespace bench {

Configuration::Configuration(int commands) {
    constexpr int kFirstCmd = 20000;
    // A prime, so that neighbours in an element are not neighbours in the vocabulary.
    constexpr size_t kStride = 37;
    size_t name = 0;
    for (int i = 0; i < commands; ++i) {
        mRecords.push_back(std::make_unique<RawXmlData>());
        RawXmlData& head = *mRecords.back();
        mRecords.push_back(std::make_unique<RawXmlData>());
        RawXmlData& element = *mRecords.back();
        head.next = &element;
        head.cmdId = element.cmdId = kFirstCmd + i;
        element.name = "boost";
        element.keys.push_back("duration_ms");
        element.values.push_back(std::to_string(100 + i % 900));
        for (int key = 1; key < kKeysPerCommand; ++key) {
            name = (name + kStride) % tarquel::kOpcodeNames.size();
            element.keys.push_back(std::string(tarquel::kOpcodeNames[name].name));
            element.values.push_back(std::to_string(1000000 + i));
        }
        mCommands.emplace(element.cmdId, &head);
    }
}

unsigned Configuration::Sum() const {
    unsigned sum = 0;
    for (const auto& [command, head] : mCommands) {
        for (const std::string& key : head->next->keys) {
            for (const char c : key) sum += static_cast<unsigned char>(c);
        }
        for (const std::string& value : head->next->values) {
            for (const char c : value) sum += static_cast<unsigned char>(c);
        }
    }
    return sum;
}

std::unique_ptr<HeapBlocks> AllocateBlocks(int commands) {
    auto blocks = std::make_unique<HeapBlocks>();
    for (int i = 0; i < commands; ++i) {
        blocks->emplace_hint(blocks->end(), i, std::make_unique<RecordBlocks>());
    }
    return blocks;
}

}  // namespace bench

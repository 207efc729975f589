#include "loader/vocabulary.h"

#include <algorithm>

#include "loader/element_keys.h"
#include "loader/name_index.h"
#include "loader/vocabulary_table.h"

namespace tarquel {

namespace {

constexpr NameIndex<kOpcodeNames.size()> kOpcodeIndex(kOpcodeNames);

// A key that describes the command names no tunable.
static_assert(std::none_of(kOpcodeNames.begin(), kOpcodeNames.end(),
                           [](const OpcodeName& row) { return keys::IsHeadKey(row.name); }));
static_assert(std::none_of(kTagNames.begin(), kTagNames.end(),
                           [](const TagName& row) { return keys::IsHeadKey(row.name); }));

static_assert(Vocabulary::kMaxCodes >= kOpcodeNames.size() + kTagNames.size());

template <typename Row, size_t N>
constexpr const Row* FindRow(const std::array<Row, N>& rows, std::string_view name) {
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const Row& row) { return row.name == name; });
    return found == rows.end() ? nullptr : &*found;
}

}  // namespace

void Vocabulary::TarquelOpcodeMapInit(bool hasPrimeCluster) {
    mTagLayout = hasPrimeCluster ? TagLayout::kThreeClusters : TagLayout::kTwoClusters;
}

const int32_t* Vocabulary::FindOpcode(std::string_view key) const {
    return mOpcodesInForce ? kOpcodeIndex.Find(key) : nullptr;
}

const int32_t* Vocabulary::FindTag(std::string_view key) const {
    if (mTagLayout == TagLayout::kNone) return nullptr;
    const TagName* row = FindRow(kTagNames, key);
    if (row == nullptr) return nullptr;
    const int32_t* tag =
        mTagLayout == TagLayout::kThreeClusters ? &row->tagThreeClusters : &row->tagTwoClusters;
    return *tag == kNoTag ? nullptr : tag;
}

bool IsInteractiveKey(std::string_view key) {
    return std::find(kInteractiveKeys.begin(), kInteractiveKeys.end(), key) !=
           kInteractiveKeys.end();
}

}  // namespace tarquel

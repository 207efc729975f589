#include "lab/book/limit_words.h"

#include <algorithm>
#include <utility>

#include "base/ids.h"

namespace lab {

bool IsRememberedWord(int tag, int requester, int value, bool isUntimedGroup) {
    if (!tarquel::IsClient(requester)) return IsFloorLimit(tag) || value > 0;
    if (!IsWeighedTag(tag)) return false;
    return requester != tarquel::kClientCamera || isUntimedGroup;
}

void AddLimitWord(std::vector<LimitWord>& words, const LimitWord& word) {
    std::erase_if(words, [&word](const LimitWord& other) {
        return !other.isRemembered || (word.isRemembered && other.requester == word.requester);
    });
    words.push_back(word);
}

void AddUnheardWord(std::vector<LimitWord>& words, const LimitWord& word) {
    const std::optional<LimitWord> alone =
        words.empty() || words.back().isRemembered ? std::nullopt : std::optional(words.back());
    AddLimitWord(words, word);
    if (!alone) return;
    words.push_back(*alone);
    std::swap(words.back().order, words[words.size() - 2].order);
}

std::vector<size_t> WeighedWords(const std::vector<LimitWord>& words) {
    const auto last =
        std::max_element(words.begin(), words.end(),
                         [](const LimitWord& a, const LimitWord& b) { return a.order < b.order; });
    std::vector<size_t> weighed;
    for (size_t i = 0; i < words.size(); ++i) {
        const bool isLast = last == words.begin() + static_cast<std::ptrdiff_t>(i);
        const bool counts = last->isRemembered ? words[i].isRemembered : isLast;
        if (counts && words[i].value > 0) weighed.push_back(i);
    }
    return weighed;
}

std::optional<size_t> WinningWord(int tag, const std::vector<LimitWord>& words) {
    std::optional<size_t> winner;
    for (const size_t i : WeighedWords(words)) {
        const LimitWord& word = words[i];
        const bool isBetter =
            !winner || (word.value == words[*winner].value
                            ? word.order < words[*winner].order
                            : (word.value > words[*winner].value) == IsFloorLimit(tag));
        if (isBetter) winner = i;
    }
    return winner;
}

int WinningValue(int tag, const std::vector<LimitWord>& words) {
    const std::optional<size_t> winner = WinningWord(tag, words);
    return winner ? words[*winner].value : 0;
}

}  // namespace lab

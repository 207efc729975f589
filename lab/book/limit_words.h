// Who wins a limit: the words of several requesters on one tag, and how they are weighed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace lab {

constexpr bool IsFloorLimit(int tag) {
    return tag == 0 || tag == 3 || tag == 6 || tag == 9;
}
constexpr bool IsCpuCeilingLimit(int tag) {
    return tag == 1 || tag == 4 || tag == 7;
}
constexpr bool IsCeilingLimit(int tag) {
    return IsCpuCeilingLimit(tag) || tag == 10;
}
// True for a tag on which clients' words are remembered: the ceilings, and the power allocator's
// two settings, which are weighed alike and then lead nowhere.
constexpr bool IsWeighedTag(int tag) {
    return IsCeilingLimit(tag) || tag == 40 || tag == 41;
}

// What a requester says about a tag.
struct LimitWord {
    int requester = 0;          // a client's id; any other is a long scene's command
    int value = 0;              // 0: it asks for no limit, or no longer
    uint64_t order = 0;         // a later word has a higher one
    bool isRemembered = false;  // as IsRememberedWord says
};

// True for a word that stands until its requester says otherwise, so that others are weighed
// against it meanwhile. Any other word counts as it is, alone, and only until the next one on its
// tag.
//   a client's word on a ceiling   is remembered; the camera's in a group without a time limit
//   alone a client's word on a floor     is not a long scene's word            is; but a beginning
//   scene that names a ceiling with 0 lifts it for
//                                  the moment, whoever asks for one
bool IsRememberedWord(int tag, int requester, int value, bool isUntimedGroup);

// Adds a word to those on its tag, oldest first. What it ends goes: every word that is not
// remembered, and the same requester's former one if the new one is remembered. (The camera's group
// stands while its other words come and go.) A word of 0 stays: it may be the last, and tells who
// has spoken.
void AddLimitWord(std::vector<LimitWord>& words, const LimitWord& word);

// The same for a remembered word that only later ones are weighed against: a group with a time
// limit says it, and the tag's own lock stays as it is. What counts alone goes on to do so.
void AddUnheardWord(std::vector<LimitWord>& words, const LimitWord& word);

// Which words on a tag are weighed against one another, as indices: the last alone if it is not
// remembered, else all; those of 0 never.
std::vector<size_t> WeighedWords(const std::vector<LimitWord>& words);

// Which of them wins: the lowest ceiling or the highest floor, the oldest of equals. Nothing when
// none is weighed: the tag's default is in force.
std::optional<size_t> WinningWord(int tag, const std::vector<LimitWord>& words);

// What the winner asks for; 0 without one.
int WinningValue(int tag, const std::vector<LimitWord>& words);

}  // namespace lab

// Every sequence of an alphabet's requests, up to a length: does each leave the phone as the rule
// of limits says?
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fuzz/alphabet.h"
#include "fuzz/referee.h"

namespace fuzz {

// A sequence after which plug-in and rule differ, as short as it was found to be.
struct CounterExample {
    std::vector<uint8_t> sequence;  // of the alphabet's letters, by number
    std::vector<Letter> letters;    // the same
    std::vector<Difference> differences;
    std::string remark;
};

class Exhaustion {
  public:
    // Keeps references to both.
    Exhaustion(Referee& referee, const Alphabet& alphabet)
        : mReferee(referee), mLetters(alphabet.letters) {}

    // Plays every sequence of `length` one by one and looks after each request: so those that are
    // shorter are looked at, too.
    std::optional<CounterExample> PlayEach(size_t length);

    // The same for `length`, but where two sequences lead to one state (Referee::State), only one
    // of them is played on. State by state every request is made once.
    std::optional<CounterExample> PlayMerged(size_t length);

    // Whether that was right: draws `count` of the merges, and plays both sequences on with the
    // same `more` random requests; their states must stay equal.
    std::optional<CounterExample> TryMerges(size_t count, size_t more, uint64_t seed);

    // Of PlayMerged.
    uint64_t StateCount() const { return mStates.size(); }
    uint64_t PlayedCount() const { return mMergeCount + mStates.size() - 1; }

    // How many sequences of one to `length` requests there are.
    static double SequenceCount(size_t letters, size_t length);

  private:
    // A state, by the shortest sequence that led to it: that of another one, and one letter more.
    struct State {
        uint32_t before = 0;
        uint8_t letter = 0;
        uint8_t length = 0;
    };
    using Digest = std::array<uint64_t, 2>;
    struct HashOfDigest {
        size_t operator()(const Digest& digest) const { return digest[0]; }
    };
    // A sequence that led to a state which another one had reached.
    struct Merge {
        uint32_t before = 0;
        uint8_t letter = 0;
        uint32_t state = 0;
    };
    using Sequence = std::vector<uint8_t>;

    Digest DigestOfState();
    Sequence SequenceOf(uint32_t state) const;
    void PlayUnjudged(const Sequence& sequence);
    std::optional<CounterExample> PlayJudged(const Sequence& sequence, size_t from);
    std::optional<CounterExample> Follow(const Sequence& sequence, size_t from,
                                         std::vector<std::string>& states);
    CounterExample Example(const Sequence& sequence, std::vector<Difference> differences) const;
    CounterExample Shorten(CounterExample example);
    void Arrive(uint32_t before, uint8_t letter);

    Referee& mReferee;
    const std::vector<Letter>& mLetters;
    std::vector<State> mStates = {State()};
    std::unordered_map<Digest, uint32_t, HashOfDigest> mKnown;
    std::vector<Merge> mMerges;  // a sample of them
    uint64_t mMergeCount = 0;
    std::mt19937_64 mSampling{1};
};

// The example as a scenario that tarquel-lab plays: what is asked, and what is expected of it.
std::string ScenarioOf(const CounterExample& example, const std::string& device);

}  // namespace fuzz

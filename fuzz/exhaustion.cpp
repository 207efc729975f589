#include "fuzz/exhaustion.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>
#include <string_view>

namespace fuzz {
namespace {

constexpr size_t kMostSampledMerges = 50'000;

uint64_t Hash(std::string_view text, uint64_t seed) {
    constexpr uint64_t kPrime = 1099511628211ULL;
    uint64_t hash = seed;
    for (const char letter : text) hash = (hash ^ static_cast<unsigned char>(letter)) * kPrime;
    return hash ^ hash >> 32;
}

// Two states' texts from where they differ.
Difference StateDifference(const std::string& expected, const std::string& found) {
    constexpr size_t kShown = 120;
    const auto at = static_cast<size_t>(
        std::mismatch(expected.begin(), expected.end(), found.begin(), found.end()).first -
        expected.begin());
    const size_t from = expected.rfind(';', at) + 1;
    return {"state", expected.substr(from, kShown), found.substr(from, kShown), ""};
}

}  // namespace

double Exhaustion::SequenceCount(size_t letters, size_t length) {
    double count = 0;
    double ofLength = 1;
    for (size_t i = 0; i < length; ++i) {
        ofLength *= static_cast<double>(letters);
        count += ofLength;
    }
    return count;
}

CounterExample Exhaustion::Example(const Sequence& sequence,
                                   std::vector<Difference> differences) const {
    CounterExample example;
    example.sequence = sequence;
    for (const uint8_t letter : sequence) example.letters.push_back(mLetters[letter]);
    example.differences = std::move(differences);
    return example;
}

void Exhaustion::PlayUnjudged(const Sequence& sequence) {
    mReferee.Begin();
    for (const uint8_t letter : sequence) mReferee.Play(mLetters[letter].deed, false);
}

// Nobody looks at the requests before `from`: another sequence began with them.
std::optional<CounterExample> Exhaustion::PlayJudged(const Sequence& sequence, size_t from) {
    mReferee.Begin();
    for (size_t i = 0; i < sequence.size(); ++i) {
        std::vector<Difference> differences = mReferee.Play(mLetters[sequence[i]].deed, i >= from);
        if (differences.empty()) continue;
        return Example({sequence.begin(), sequence.begin() + static_cast<std::ptrdiff_t>(i) + 1},
                       std::move(differences));
    }
    return std::nullopt;
}

std::optional<CounterExample> Exhaustion::PlayEach(size_t length) {
    std::optional<CounterExample> shortest;
    Sequence sequence(length, 0);
    size_t changed = 0;
    while (true) {
        std::optional<CounterExample> example = PlayJudged(sequence, changed);
        if (example) {
            const size_t found = example->letters.size();
            if (!shortest || found < shortest->letters.size()) shortest = std::move(example);
            if (found == 1) return shortest;
            // Only shorter ones count from here on.
            sequence.resize(found - 1);
        }
        // The next one, as a number of so many digits.
        changed = sequence.size();
        while (changed > 0 && sequence[changed - 1] + size_t{1} == mLetters.size()) {
            sequence[--changed] = 0;
        }
        if (changed == 0) return shortest;
        ++sequence[--changed];
    }
}

Exhaustion::Digest Exhaustion::DigestOfState() {
    const std::string state = mReferee.State();
    return {Hash(state, 14695981039346656037ULL), Hash(state, 0x9E3779B97F4A7C15ULL)};
}

Exhaustion::Sequence Exhaustion::SequenceOf(uint32_t state) const {
    Sequence sequence;
    for (uint32_t at = state; mStates[at].length > 0; at = mStates[at].before) {
        sequence.push_back(mStates[at].letter);
    }
    std::reverse(sequence.begin(), sequence.end());
    return sequence;
}

// The state that the phone is in now, reached with one letter more than `before`.
void Exhaustion::Arrive(uint32_t before, uint8_t letter) {
    const auto fresh = static_cast<uint32_t>(mStates.size());
    const auto [known, isNew] = mKnown.try_emplace(DigestOfState(), fresh);
    if (isNew) {
        mStates.push_back({before, letter, static_cast<uint8_t>(mStates[before].length + 1)});
        return;
    }
    // Each merge has the same chance to be among the sample.
    const Merge merge{before, letter, known->second};
    ++mMergeCount;
    if (mMerges.size() < kMostSampledMerges) {
        mMerges.push_back(merge);
    } else if (const uint64_t at = mSampling() % mMergeCount; at < kMostSampledMerges) {
        mMerges[at] = merge;
    }
}

std::optional<CounterExample> Exhaustion::PlayMerged(size_t length) {
    mReferee.Begin();
    mStates.assign(1, State());
    mKnown.clear();
    mKnown[DigestOfState()] = 0;
    mMerges.clear();
    mMergeCount = 0;
    // States are numbered as they are found, so that shorter sequences come first.
    for (uint32_t before = 0; before < mStates.size() && mStates[before].length < length;
         ++before) {
        Sequence sequence = SequenceOf(before);
        sequence.push_back(0);
        for (size_t letter = 0; letter < mLetters.size(); ++letter) {
            sequence.back() = static_cast<uint8_t>(letter);
            std::optional<CounterExample> example = PlayJudged(sequence, sequence.size() - 1);
            if (example) return Shorten(std::move(*example));
            Arrive(before, sequence.back());
        }
    }
    return std::nullopt;
}

// Leaves out of a sequence, one or two at a time, what it does not need to differ from the rule.
// One that does not differ stays as it is.
CounterExample Exhaustion::Shorten(CounterExample example) {
    Sequence sequence = example.sequence;
    const auto tryWithout = [&](size_t first, size_t second) {
        Sequence shorter;
        for (size_t i = 0; i < sequence.size(); ++i) {
            if (i != first && i != second) shorter.push_back(sequence[i]);
        }
        std::optional<CounterExample> found = PlayJudged(shorter, 0);
        if (!found) return false;
        example = std::move(*found);
        sequence = example.sequence;
        return true;
    };
    const auto tryAll = [&] {
        for (size_t first = 0; first < sequence.size(); ++first) {
            for (size_t second = first; second < sequence.size(); ++second) {
                if (tryWithout(first, second)) return true;
            }
        }
        return false;
    };
    while (tryAll()) {
    }
    return example;
}

// Plays the sequence and adds the states from `from` on to `states`.
std::optional<CounterExample> Exhaustion::Follow(const Sequence& sequence, size_t from,
                                                 std::vector<std::string>& states) {
    mReferee.Begin();
    for (size_t i = 0; i <= sequence.size(); ++i) {
        if (i >= from) states.push_back(mReferee.State());
        if (i == sequence.size()) break;
        std::vector<Difference> differences = mReferee.Play(mLetters[sequence[i]].deed, i >= from);
        if (differences.empty()) continue;
        return Example({sequence.begin(), sequence.begin() + static_cast<std::ptrdiff_t>(i) + 1},
                       std::move(differences));
    }
    return std::nullopt;
}

std::optional<CounterExample> Exhaustion::TryMerges(size_t count, size_t more, uint64_t seed) {
    std::mt19937_64 random(seed);
    std::shuffle(mMerges.begin(), mMerges.end(), random);
    for (size_t i = 0; i < std::min(count, mMerges.size()); ++i) {
        Sequence one = SequenceOf(mMerges[i].state);
        Sequence other = SequenceOf(mMerges[i].before);
        other.push_back(mMerges[i].letter);
        const size_t oneFrom = one.size();
        const size_t otherFrom = other.size();
        for (size_t k = 0; k < more; ++k) {
            one.push_back(static_cast<uint8_t>(random() % mLetters.size()));
            other.push_back(one.back());
        }
        std::vector<std::string> states;
        std::vector<std::string> otherStates;
        std::optional<CounterExample> example = Follow(one, oneFrom, states);
        if (example) return Shorten(std::move(*example));
        example = Follow(other, otherFrom, otherStates);
        if (example) return Shorten(std::move(*example));
        const auto [at, otherAt] = std::mismatch(states.begin(), states.end(), otherStates.begin());
        if (at == states.end()) continue;
        // As far as the two are alike; the request that made them differ is the last one.
        const auto length = otherFrom + static_cast<size_t>(at - states.begin());
        other.resize(length);
        example = Example(other, {StateDifference(*at, *otherAt)});
        example->remark =
            "expected is the state after:\n" +
            StepsOf(Example({one.begin(),
                             one.end() - static_cast<std::ptrdiff_t>(otherFrom + more - length)},
                            {})
                        .letters);
        return example;
    }
    return std::nullopt;
}

std::string ScenarioOf(const CounterExample& example, const std::string& device) {
    std::string text =
        fmt::format("title: The plug-in and the rule of limits differ\ndevice: {}\n\nsteps:\n{}",
                    device, StepsOf(example.letters));
    for (const Difference& difference : example.differences) {
        text += fmt::format("  # {}: expected {}, found {}\n", difference.what, difference.expected,
                            difference.found);
        if (!difference.expect.empty())
            text += fmt::format("  - expect: {{{}}}\n", difference.expect);
    }
    std::istringstream remark(example.remark);
    for (std::string line; std::getline(remark, line);) text += fmt::format("  # {}\n", line);
    return text;
}

}  // namespace fuzz

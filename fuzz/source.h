// Where generated requests and records take their choices from: the bytes of a fuzzer's input, or a
// random generator that never ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace fuzz {

class Source {
  public:
    virtual ~Source() = default;

    // True when there is nothing left to decide; drawing then gives zeroes.
    virtual bool IsEmpty() const = 0;

    virtual uint8_t Byte() = 0;

    int Int() {
        uint32_t bits = 0;
        for (int i = 0; i < 4; ++i) bits = bits << 8 | Byte();
        return static_cast<int>(bits);
    }

    // From 0 to `count` - 1; `count` is 1 to 65536. The first choice is what an empty source gives.
    size_t Below(size_t count) {
        const size_t bits = count <= 256 ? Byte() : size_t{Byte()} << 8 | Byte();
        return bits % count;
    }

    // From `low` to `high`, at most 65536 values apart.
    int Between(int low, int high) {
        return low + static_cast<int>(Below(static_cast<size_t>(high - low) + 1));
    }

    // True in about `percent` of 100 cases; never for an empty source.
    bool Chance(int percent) { return Byte() > 255 - percent * 256 / 100; }

    template <typename List>
    const auto& Pick(const List& list) {
        return list[Below(std::size(list))];
    }
};

class BytesSource : public Source {
  public:
    // Keeps the pointer.
    BytesSource(const uint8_t* data, size_t size) : mAt(data), mEnd(data + size) {}

    bool IsEmpty() const override { return mAt == mEnd; }
    uint8_t Byte() override { return IsEmpty() ? uint8_t{0} : *mAt++; }

  private:
    const uint8_t* mAt;
    const uint8_t* mEnd;
};

// The same seed gives the same choices on every machine.
class RandomSource : public Source {
  public:
    explicit RandomSource(uint64_t seed) : mGenerator(seed) {}

    bool IsEmpty() const override { return false; }
    uint8_t Byte() override {
        if (mLeft == 0) {
            mBits = mGenerator();
            mLeft = sizeof(mBits);
        }
        --mLeft;
        const auto byte = static_cast<uint8_t>(mBits);
        mBits >>= 8;
        return byte;
    }

  private:
    std::mt19937_64 mGenerator;
    uint64_t mBits = 0;
    size_t mLeft = 0;
};

}  // namespace fuzz

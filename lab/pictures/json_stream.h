// JSON written as it comes, without a document in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <type_traits>

namespace lab {

class JsonStream {
  public:
    // `isInPage`: it stands in a script of a page, which no '<' may end.
    explicit JsonStream(std::ostream& out, bool isInPage = false)
        : mOut(out), mIsInPage(isInPage) {}

    // Commas are put where they belong. An object's values follow their keys.
    void Open(char bracket);
    void Close(char bracket);
    void Key(std::string_view name);

    void Number(int64_t number);
    // `thousandths` / 1000, as short as it is exact.
    void Decimal(int64_t thousandths);
    // Any text: what is no UTF-8 is replaced.
    void Text(std::string_view text);

    // A number or a text.
    template <typename Value>
    void Put(const Value& value) {
        if constexpr (std::is_arithmetic_v<Value>) {
            Number(static_cast<int64_t>(value));
        } else {
            Text(value);
        }
    }

    template <typename Value>
    void Field(std::string_view name, const Value& value) {
        Key(name);
        Put(value);
    }

    // A list of numbers and texts.
    template <typename... Values>
    void Row(const Values&... values) {
        Open('[');
        (Put(values), ...);
        Close(']');
    }

    // Begins a new line within a list, for those who read the file.
    void Break() { mBreaks = true; }

  private:
    void Separate();

    std::ostream& mOut;
    const bool mIsInPage;
    bool mNeedsComma = false;
    bool mBreaks = false;
};

}  // namespace lab

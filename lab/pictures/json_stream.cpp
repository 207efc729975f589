#include "lab/pictures/json_stream.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

namespace lab {
namespace {

bool IsPlain(char letter) {
    return letter >= ' ' && letter <= '~' && letter != '"' && letter != '\\' && letter != '<';
}

}  // namespace

void JsonStream::Separate() {
    if (mNeedsComma) mOut.put(',');
    if (mBreaks) mOut.put('\n');
    mBreaks = false;
    mNeedsComma = true;
}

void JsonStream::Open(char bracket) {
    Separate();
    mOut.put(bracket);
    mNeedsComma = false;
}

void JsonStream::Close(char bracket) {
    mOut.put(bracket);
    mNeedsComma = true;
}

void JsonStream::Key(std::string_view name) {
    Text(name);
    mOut.put(':');
    mNeedsComma = false;
}

void JsonStream::Number(int64_t number) {
    Separate();
    std::array<char, 24> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    mOut.write(digits.data(), end.ptr - digits.data());
}

void JsonStream::Decimal(int64_t thousandths) {
    Separate();
    std::string digits = fmt::format("{}{}.{:03}", thousandths < 0 ? "-" : "",
                                     std::abs(thousandths / 1000), std::abs(thousandths % 1000));
    digits.resize(digits.find_last_not_of('0') + 1);
    if (digits.back() == '.') digits.pop_back();
    mOut << digits;
}

void JsonStream::Text(std::string_view text) {
    Separate();
    if (std::all_of(text.begin(), text.end(), IsPlain)) {
        mOut << '"' << text << '"';
        return;
    }
    using Json = nlohmann::json;
    const std::string quoted =
        Json(std::string(text)).dump(-1, ' ', false, Json::error_handler_t::replace);
    for (const char letter : quoted) {
        if (letter == '<' && mIsInPage) {
            mOut << "\\u003c";
        } else {
            mOut.put(letter);
        }
    }
}

}  // namespace lab

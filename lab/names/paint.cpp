#include "lab/names/paint.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

namespace lab {

Paint Paint::ForTerminal(int descriptor) {
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal && std::strcmp(terminal, "dumb") == 0;
    return Paint(isatty(descriptor) == 1 && !isDumb && !(refused && *refused));
}

std::string Paint::operator()(Colour colour, const std::string& text) const {
    // In the order of Colour.
    constexpr const char* kCodes[] = {"0", "1", "2", "31", "32", "33", "36"};
    if (!mOn || text.empty() || colour == Colour::kPlain) return text;
    return std::string("\033[") + kCodes[static_cast<size_t>(colour)] + "m" + text + "\033[0m";
}

void PrintError(Colour colour, const std::string& text) {
    std::cerr << Paint::ForTerminal(STDERR_FILENO)(colour, text) << "\n";
}

}  // namespace lab

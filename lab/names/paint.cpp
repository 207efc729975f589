#include "lab/names/paint.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace lab {

Paint Paint::ForTerminal(int descriptor) {
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal && std::strcmp(terminal, "dumb") == 0;
    return Paint(isatty(descriptor) == 1 && !isDumb && !(refused && *refused));
}

std::string Paint::operator()(Colour colour, const std::string& text) const {
    if (!mOn || text.empty()) return text;
    const char* code = "0";
    switch (colour) {
        case Colour::kPlain:
            return text;
        case Colour::kBold:
            code = "1";
            break;
        case Colour::kDim:
            code = "2";
            break;
        case Colour::kRed:
            code = "31";
            break;
        case Colour::kGreen:
            code = "32";
            break;
        case Colour::kYellow:
            code = "33";
            break;
        case Colour::kCyan:
            code = "36";
            break;
    }
    return std::string("\033[") + code + "m" + text + "\033[0m";
}

}  // namespace lab

// Colour for a terminal.
#pragma once

#include <string>

namespace lab {

enum class Colour { kPlain, kBold, kDim, kRed, kGreen, kYellow, kCyan };

class Paint {
  public:
    // Without `on`, text stays as it is.
    explicit Paint(bool on) : mOn(on) {}

    // On for a terminal, unless the environment has NO_COLOR or a dumb TERM.
    static Paint ForTerminal(int descriptor);

    std::string operator()(Colour colour, const std::string& text) const;

  private:
    bool mOn;
};

// A line on standard error, in colour where that is a terminal.
void PrintError(Colour colour, const std::string& text);

}  // namespace lab

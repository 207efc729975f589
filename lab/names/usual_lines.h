// Lines of the plug-in's log that are errors by priority and no sign of a fault.
#pragma once

#include <string_view>

namespace lab {

// True for "tag N is not registerd! ...", which every tag says that holds no lock before it gets
// one: at its first limit, and at each one after its limit was lifted.
inline bool IsUsualLine(std::string_view text) {
    return text.find("is not registerd!") != std::string_view::npos;
}

}  // namespace lab

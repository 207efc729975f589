// The text of a file that a user names: a path, a pipe (<(command) of a shell), or - for standard
// input.
#pragma once

#include <string>

namespace lab {

inline constexpr const char* kStandardInput = "-";

// True for what can be read: standard input, a file, a pipe or a device; not for a folder.
bool IsInput(const std::string& name);

// The whole text. What can be read once only (standard input, a pipe) is kept, so that asking again
// gives it again. Throws InputError: "cannot be read: ...", behind `what` ("this scene file ").
std::string ReadInput(const std::string& name, const std::string& what = "");

}  // namespace lab

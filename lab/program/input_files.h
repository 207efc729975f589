// The files that a command is given, folders among them.
#pragma once

#include <string>
#include <vector>

namespace lab {

// `names` with every folder replaced by the files below it that end in one of `extensions`, sorted;
// what is no folder stays as it is. Throws InputError for a folder that cannot be read or has none.
std::vector<std::string> FilesOf(const std::vector<std::string>& names,
                                 const std::vector<std::string>& extensions);

}  // namespace lab

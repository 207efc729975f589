// The files that a command is given, folders among them.
#pragma once

#include <string>
#include <vector>

#include "lab/pictures/file_roles.h"
#include "lab/server/inputs.h"

namespace lab {

// `names` with every folder replaced by the files below it that end in one of `extensions`, sorted;
// what is no folder stays as it is. Throws InputError for a folder that cannot be read or has none.
std::vector<std::string> FilesOf(const std::vector<std::string>& names,
                                 const std::vector<std::string>& extensions);

// The files that the user names in place of others, as read. Throws InputError for a name that
// nothing has.
void ReadInsteadFiles(const Instead& instead, FileRoles& roles);

// What playing the scenario reads, as far as it can be found: what cannot is told when it is
// played.
void ReadScenarioFiles(const std::string& scenario, const Instead& instead, FileRoles& roles);

}  // namespace lab

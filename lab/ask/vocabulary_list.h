// The vocabulary of scene files as the loader's tables have it: every key, what it stands for and
// in which unit its value is.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "lab/names/paint.h"
#include "lab/names/table.h"

namespace lab {

struct VocabularySection {
    std::string heading;
    const char* name;  // in JSON, where sections of one name are one
    Listing keys;
};

// The tunables by family, then the keys of every element, of the clusters, of frequency levels, of
// the interactive governor and of long scenes.
std::vector<VocabularySection> ListVocabulary();

void PrintVocabulary(std::ostream& out, const Paint& paint);

// A page of documentation.
void PrintVocabularyPage(std::ostream& out);

// As JSON, with everything that there is to tell.
nlohmann::json VocabularyJson();

}  // namespace lab

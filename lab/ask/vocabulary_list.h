// The vocabulary of scene files as the loader's tables have it: every key, what it stands for and
// in which unit its value is.
#pragma once

#include <ostream>

#include "lab/names/paint.h"
#include "lab/names/table.h"

namespace lab {

void PrintVocabulary(std::ostream& out, const Paint& paint);

// A page of documentation.
void PrintVocabularyPage(std::ostream& out);

// As JSON, with everything that there is to tell.
nlohmann::json VocabularyJson();

}  // namespace lab

// What is wrong with a run, with the moments to which a picture leads.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/book/history.h"
#include "lab/pictures/pictures.h"

namespace lab {

struct PlacedFinding {
    std::string text;
    std::optional<Time> at;  // none: of the run as a whole
    size_t request = History::kNobody;
    size_t lock = History::kNobody;
};

// The findings of `head`, in its order, with the moments that the history knows.
std::vector<PlacedFinding> PlaceFindings(const History& history, const PictureHead& head);

}  // namespace lab

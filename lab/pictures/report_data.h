// A run as the JSON that the report's page reads.
#pragma once

#include <string>

#include "lab/book/history.h"
#include "lab/pictures/pictures.h"

namespace lab {

// The run as one JSON text, small enough for a day: texts and lists of pairs are told once and
// referred to by number, times are whole ticks, columns that only rise are differences.
// lab/report/data.js reads it back. Never contains "</" or "<!", so that it can stand in a page.
std::string ReportData(const History& history, const PictureHead& head);

}  // namespace lab

// A run as the JSON that the report's page reads.
#pragma once

#include <ostream>

#include "lab/book/history.h"
#include "lab/pictures/pictures.h"

namespace lab {

// Writes the run as one JSON text, small enough for a day: texts and lists of pairs are told once
// and referred to by number, times are whole ticks, columns that only rise are differences.
// lab/report/data.js reads it back. Never contains '<', so that it can stand in a page.
void WriteReportData(const History& history, const PictureHead& head, std::ostream& out);

}  // namespace lab

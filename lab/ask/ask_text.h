// An ask in words and as JSON, for the answers that tell of it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "lab/ask/node_verdicts.h"
#include "lab/ask/replay.h"
#include "lab/names/paint.h"

namespace lab {

// "5.120 s", or what a capture's clock shows.
std::string TimeText(const Moments& times, Time at);

// "since 5.120 s"; of what a capture does not tell the beginning of: "since before the capture".
std::string SinceText(const Moments& times, const Ask& ask);

// "1120 ms left", "until its client says otherwise".
std::string LastsText(const Ask& ask, Time now);

// "counts  thermal  <= 1651.2 MHz  since 4.010 s, until its client says otherwise", in columns.
std::string HolderText(const Holder& holder, const ReplayAnswer& answer, const Paint& paint);

// "asked by 'do game_fight (9220)', line 163".
std::string AskedText(const Ask& ask);

nlohmann::json AskJson(const Ask& ask);
nlohmann::json HolderJson(const Holder& holder);

}  // namespace lab

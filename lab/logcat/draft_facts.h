// What a request that a log tells of asks for, as far as the log tells it.
#pragma once

#include <string>

#include "lab/book/request_facts.h"
#include "lab/logcat/log_draft.h"

namespace lab {

//   client  whose limits they are; 0 where the log does not tell
//   label   of its command; empty where it has none or the log does not name it
RequestFacts FactsOf(const LogDraft& draft, int client, const std::string& label, Layout layout);

}  // namespace lab

// What a request asks to be held, from its own words: the facts that the book keeps of it.
#pragma once

#include "lab/book/request_facts.h"
#include "lab/server/scenario.h"
#include "tarquel/action.h"

namespace lab {

// True for a command whose pairs are tags and limits instead of opcodes: a long-term scene.
bool IsLongScene(const Action& first);

//   first             the chain as it is sent
//   onDemandMs        what the server's on-demand durations say for the command
//   result            of the request; a refused one claims nothing
RequestFacts FactsOf(const DoCommand& request, const Action& first, int onDemandMs, int result,
                     Layout layout);
RequestFacts FactsOf(const SetLimits& request, int result, Layout layout);

}  // namespace lab

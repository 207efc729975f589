#include <fmt/format.h>

#include "lab/names/text.h"
#include "lab/pictures/pictures.h"

namespace lab {

std::string TermText(const History::Term& term) {
    return term.until ? fmt::format("for {} ms", WholeMs(*term.until - term.since))
                      : "until released";
}

std::string LockEndText(const History::Lock& lock) {
    if (lock.how == History::LockEnd::kHeld) return "held at the end of the run";
    return fmt::format("{} after {} ms",
                       lock.how == History::LockEnd::kExpired ? "expired" : "released",
                       WholeMs(lock.end - lock.Since()));
}

}  // namespace lab

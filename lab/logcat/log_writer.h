// Writes a run's log as logcat would print it on a phone.
#pragma once

#include <ostream>

#include "lab/phone/events.h"

namespace lab {

class LogcatWriter {
  public:
    // Writes to `out`, which must outlive the writer: the mark of a beginning buffer now, a line in
    // threadtime format for each LogLine that it observes later. The run starts on 1 January.
    explicit LogcatWriter(std::ostream& out);

    void Observe(const Event& event);

  private:
    std::ostream& mOut;
    bool mInRequest = false;
};

}  // namespace lab

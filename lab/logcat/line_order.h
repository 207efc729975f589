// Which of the plug-in's lines come after which: where that is not so, lines are missing.
#pragma once

#include <map>
#include <utility>

#include "lab/logcat/log_reader.h"

namespace lab {

class LineOrder {
  public:
    // False when a line of the same thread must have stood between this one and the one above it.
    // Told of captures in which every switch is on, and of lines that have their thread's number;
    // true for all others.
    bool Add(const CapturedLine& line, bool isFull);

  private:
    struct Last {
        Message message = Message::kUnknown;
        bool isSet = false;  // it is the first line about the lock of a tag that has just been set
    };

    std::map<std::pair<int, int>, Last> mLast;  // by thread
};

}  // namespace lab

// What every command is given that plays a scenario or a capture to answer from it.
#pragma once

#include "lab/ask/replay.h"
#include "lab/program/commands.h"

namespace lab {

template <typename Options>
void TakeReplayFile(Command<Options>& command, std::string& file) {
    command
        .Takes("file", "FILE", file,
               "A scenario (a YAML file), a capture of a phone's log, or what ships under a name")
        .required();
}

// Moment, device, scene file and plug-in.
template <typename Options>
void TakeReplayOptions(Command<Options>& command, Replay::Options& options) {
    command.Takes("--at", "TIME", options.at,
                  "The moment: 5.200 or 5s (seconds), 5200ms, of a capture 19:42:30; the end "
                  "unless given");
    command.Takes("--device", "NAME|FILE", options.instead.device,
                  "The device instead of the file's own: a shipped name or a YAML file");
    command.Takes("--scenes", "FILE", options.instead.scenes,
                  "The scene file instead of the device's");
    command.TakesLibrary(options.library);
}

}  // namespace lab

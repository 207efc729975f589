// The options of every command that plays a scenario or a capture to answer from it.
#pragma once

#include "lab/ask/replay.h"
#include "lab/program/commands.h"

namespace lab {

// Moment, device, scene file and plug-in; the file itself is the command's own.
inline void AddReplayOptions(CLI::App& command, Replay::Options& options) {
    command
        .add_option("--at", options.at,
                    "The moment: 5.200 or 5s (seconds), 5200ms, of a capture 19:42:30; the end "
                    "unless given")
        ->type_name("TIME");
    command
        .add_option("--device", options.instead.device,
                    "The device instead of the file's own: a shipped name or a YAML file")
        ->type_name("NAME|FILE");
    command
        .add_option("--scenes", options.instead.scenes, "The scene file instead of the device's")
        ->type_name("FILE");
    AddLibraryOption(command, options.library);
}

}  // namespace lab

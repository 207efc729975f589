// The requests that are measured: each with the floor that no implementation goes below, the bare
// system calls and HAL calls that the request is prescribed to make.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bench/plugin.h"
#include "bench/quiet_phone.h"

namespace bench {

// How far above its floor a request may be; 0 where nothing is asked.
struct Target {
    double maxRatio = 0;
    double maxNsAboveFloor = 0;
};

struct Request {
    std::string name;  // BM_<Room>_<Action>/<case>
    Target target;
    std::function<void()> enter;  // brings the plug-in into the state that the case names
    std::function<void()> run;    // one iteration
    std::function<void()> leave;  // undoes `enter`
    std::function<void()> floor;  // what one iteration costs at least
    bool isThreaded = false;      // also measured with 2 and 4 threads at once
};

// Every request of an initialised plug-in on `phone`. Both outlive the requests; only the threaded
// ones may run on several threads.
std::vector<Request> MakeRequests(Plugin& plugin, const QuietPhone& phone);

// Reads the nodes that Initialize reads, in its order, with open, read and close alone.
void ReadDefaultNodes();

}  // namespace bench

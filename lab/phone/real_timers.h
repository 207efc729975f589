// Timers of the machine whose callbacks run on threads that the lab starts.
//
// The C library starts a thread for each callback (SIGEV_THREAD) behind the back of whoever watches
// threads: ThreadSanitizer does not know them, and nobody can wait for one. Here the machine's
// timer signals a thread of the lab's, which starts an ordinary thread for the callback.
#pragma once

#include <csignal>
#include <ctime>

namespace lab {

// timer_create for a notification by thread (SIGEV_THREAD). Returns 0, or -1 with errno. The other
// operations on the timer are the C library's own. A firing is recorded by the phone that is alive.
int CreateRealTimer(clockid_t clock, const sigevent& notification, timer_t* id);

// Returns once every callback that has begun is over. Not from within a callback.
void WaitForTimerCallbacks();

}  // namespace lab

// Keeps a timer that fires late away from an adapter that is gone: deleting a POSIX timer does not
// wait for a callback that has begun, nor for one that is about to. A callback that is about to may
// reach the next adapter at the same address, and is an expiry like any other there.
#pragma once

namespace tarquel::timer_fence {

// From Open to Close, Run lets callbacks through to `owner`, the one adapter that there is. Close
// waits for those that have begun.
void Open(void* owner);
void Close();

// Calls job(owner) if the fence is open for `owner`; no lock is held meanwhile. The job must not
// close the fence. Threads: any.
void Run(void* owner, void (*job)(void* owner));

}  // namespace tarquel::timer_fence

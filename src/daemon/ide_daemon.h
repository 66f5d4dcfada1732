// Start and stop of the daemon process.
#pragma once

#include <cstdint>

// Runs the daemon on the calling thread: checks the resource manager, takes the single-instance
// lock, starts the components, serves, and takes everything down again. Returns the exit value of
// the process: 0 when the components started and serving came to an end, else -1. Nothing ends
// serving on purpose: no signal is handled and no host command does it.
int32_t IdeDaemonRun();

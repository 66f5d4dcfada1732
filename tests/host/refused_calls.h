// Refusals and answers of the system and of libraries that a machine rarely gives. The linker sends
// the calls of this test program through the doubles. Refused can be close, which closes all the
// same, deflateInit2_, fork, mkdirat, pread, read, sqlite3_open_v2 and write.
#pragma once

#include <chrono>
#include <vector>

#include "support/refused_call.h"

namespace tiv::test {

// Puts the monotonic clock of this program forward.
void PutClockForward(std::chrono::seconds time);

// The sleeps of this program that were asked for in this test; none of them takes any time.
std::vector<std::chrono::nanoseconds> Sleeps();

}  // namespace tiv::test

// Timed waits that end at once, on a clock of their own. The linker sends those of this test
// program through the double.
#pragma once

#include <chrono>

namespace tiv::test {

// While it lives, the steady clock stands still, and each timed wait on a condition moves it to the
// wait's end at once.
class EndingWaits {
 public:
    EndingWaits();
    ~EndingWaits();
    EndingWaits(const EndingWaits&) = delete;
    EndingWaits& operator=(const EndingWaits&) = delete;
};

}  // namespace tiv::test

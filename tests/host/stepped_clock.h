// A clock for the programs that a test starts.
#pragma once

#include <cstdlib>
#include <string>

namespace tiv::test {

// Programs that are started meanwhile see every reading of the clock a second behind the last.
class ScopedSteppedClock {
 public:
    ScopedSteppedClock() {
        const char* options = getenv("ASAN_OPTIONS");
        options_ = options == nullptr ? "" : options;
        setenv("ASAN_OPTIONS", (options_ + ":verify_asan_link_order=0").c_str(), 1);
        setenv("LD_PRELOAD", TIV_STEPPED_CLOCK, 1);
    }
    ~ScopedSteppedClock() {
        unsetenv("LD_PRELOAD");
        setenv("ASAN_OPTIONS", options_.c_str(), 1);
    }
    ScopedSteppedClock(const ScopedSteppedClock&) = delete;
    ScopedSteppedClock& operator=(const ScopedSteppedClock&) = delete;

 private:
    std::string options_;
};

}  // namespace tiv::test

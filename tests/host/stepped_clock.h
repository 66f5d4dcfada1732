// A clock for the programs that a test starts.
#pragma once

#include <cstdlib>
#include <string>

namespace tiv::test {

// Programs that are started meanwhile see every reading of the clock a second behind the last.
class ScopedSteppedClock {
 public:
    ScopedSteppedClock() {
        options_ = Value("ASAN_OPTIONS");
        preload_ = Value("LD_PRELOAD");
        setenv("ASAN_OPTIONS", (options_ + ":verify_asan_link_order=0").c_str(), 1);
        setenv("LD_PRELOAD", (TIV_STEPPED_CLOCK " " + preload_).c_str(), 1);
    }
    ~ScopedSteppedClock() {
        setenv("ASAN_OPTIONS", options_.c_str(), 1);
        setenv("LD_PRELOAD", preload_.c_str(), 1);
    }
    ScopedSteppedClock(const ScopedSteppedClock&) = delete;
    ScopedSteppedClock& operator=(const ScopedSteppedClock&) = delete;

 private:
    static std::string Value(const char* name) {
        const char* value = getenv(name);
        return value == nullptr ? "" : value;
    }

    std::string options_;
    std::string preload_;
};

}  // namespace tiv::test

// Double of the OS abstraction: forwards to the platform unless a test says otherwise.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "support/mm_functions.h"

namespace tiv::test {

// The members inherited from MmFunctions are what the C functions call; they start with the
// platform's own functions and a test may replace each. `calls` records every call with its
// arguments and the calling thread's name, and gives results by number of call:
//
//   FakeMm::Instance().calls.Fail("mmSemWait", -1, EINVAL);
//
// Thread-safe; lives until the process ends.
class FakeMm : public MmFunctions {
 public:
    static FakeMm& Instance();

    // Back to the platform's functions and clock, no faults, no record.
    void Reset();

    // From here mmSleep returns at once and moves the clock on by its argument, and mmGetTickCount
    // reads that clock, which starts at `nanoSeconds`. To be called before threads use either.
    void UseFakeClock(uint64_t nanoSeconds = 1000000000);
    void SetClock(uint64_t nanoSeconds) { clock_ = nanoSeconds; }
    void AdvanceClock(uint64_t nanoSeconds) { clock_ += nanoSeconds; }
    uint64_t Clock() const { return clock_; }
    // Every thread gets a stack of 128 KiB, whatever its creator asks for: the smallest that any
    // thread of the daemon may have. The environment variable TIV_TEST_SMALL_STACKS does the same.
    void UseSmallStacks();
    // mmSleep alone returns at once; the clock stays the platform's.
    void SkipSleeps();

    // What mmGetLocalTime gives from here on.
    void SetLocalTime(const mmSystemTime& time);
    // Arguments of mmSleep in the order of the calls.
    std::vector<uint32_t> Sleeps() const;

 private:
    FakeMm();

    std::atomic<uint64_t> clock_{0};  // ns
};

}  // namespace tiv::test

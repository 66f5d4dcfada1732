// The first state of the doubles, for programs whose tests run in one process.
#pragma once

#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace tiv::test {

// Brings the doubles of driver, OS abstraction, log and allocator back to the state in which a
// program starts. A fixture has it in front of all that starts threads.
struct FreshDoubles {
    FreshDoubles() {
        FakeDriver::Instance().Reset();
        FakeMm::Instance().Reset();
        RecordedLog::Instance().SetLevel(DLOG_DEBUG);
        RecordedLog::Instance().Clear();
        FailNextNewOfAtLeast(0);
    }
};

}  // namespace tiv::test

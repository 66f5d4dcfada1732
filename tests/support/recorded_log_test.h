// Fixture of the tests that read the log.
#pragma once

#include <gtest/gtest.h>

#include "support/recorded_log.h"

namespace tiv::test {

class RecordedLogTest : public ::testing::Test {
 protected:
    RecordedLogTest() { log.Clear(); }

    RecordedLog& log = RecordedLog::Instance();
};

}  // namespace tiv::test

// The parameters, the context and the clock that the tests of sampling share.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "job_wrapper/chunk_collector.h"
#include "job_wrapper/collection_job.h"
#include "message/job_context.h"
#include "message/prof_params.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace tiv::test {

constexpr uint64_t START_NS = 5000000000;
constexpr uint32_t PERIOD_NS = 100000000;

inline std::shared_ptr<analysis::rokt::message::JobContext> MakeJobContext() {
    auto context = std::make_shared<analysis::rokt::message::JobContext>();
    context->job_id = "job7";
    context->dev_id = "2";
    context->tag = "null";
    return context;
}

// Starts each test with an empty log, a clock of its own and a collector.
class SampleTest : public ::testing::Test {
 protected:
    SampleTest() { log.Clear(); }
    ~SampleTest() override { (void)collector.Finish(); }

    static FakeMm& WithFakeClock() {
        FakeMm::Instance().UseFakeClock(START_NS);
        return FakeMm::Instance();
    }

    FakeMm& mm = WithFakeClock();
    RecordedLog& log = RecordedLog::Instance();
    std::shared_ptr<analysis::rokt::message::ProfileParams> params =
        std::make_shared<analysis::rokt::message::ProfileParams>();
    std::shared_ptr<analysis::rokt::message::JobContext> jobCtx = MakeJobContext();
    ChunkCollector collector;
};

}  // namespace tiv::test

// Samples whose copy into the buffer fails.
#include "job_wrapper/proc_timer_handler.h"
#include "job_wrapper/sample_job.h"
#include "support/failing_copy.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

class Buffering : public ProcTimerHandler {
 public:
    using ProcTimerHandler::ProcTimerHandler;

    int ParseProcFile(std::ifstream& /*source*/, std::string& /*out*/) override { return 0; }
    uint64_t UsedSize() const { return buf.GetUsedSize(); }
};

using FailedCopy = tiv::test::SampleTest;

TEST_F(FailedCopy, LeavesTheBufferAsItWas) {
    Buffering handler(0, 2, 100, tiv::test::PERIOD_NS, "", "Load.data", params, jobCtx,
                      collector.Get());
    ASSERT_EQ(handler.Init(), 0);
    handler.StoreData("kept");
    {
        const tiv::test::FailingCopy failing;
        handler.StoreData("lost");
    }

    EXPECT_EQ(handler.UsedSize(), 4U);
    EXPECT_TRUE(log.Has('E', "memcpy stat data failed: 34"));
    handler.StoreData("next");
    EXPECT_EQ(handler.Uninit(), 0);
    EXPECT_EQ(collector.Payloads(), std::vector<std::string>{"keptnext"});
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper

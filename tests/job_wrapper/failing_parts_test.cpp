// Tests of the jobs over parts that fail although they work by themselves. A timer, a poller and a
// split of texts of this program's own stand in place of theirs.
#include "config/config_manager.h"
#include "job_wrapper/prof_channel_manager.h"
#include "job_wrapper/prof_mini_llc_job.h"
#include "job_wrapper/prof_perf_job.h"
#include "job_wrapper/prof_timer.h"
#include "job_wrapper/script_double.h"
#include "job_wrapper/timer_manager.h"
#include "transport/channel_poll.h"

namespace {

int startResult = 0;
int stopResult = 0;
int starts = 0;
bool splitsAreEmpty = false;

using Analysis::Rokt::ZelnarErrMgr::ErrorContext;

}  // namespace

namespace Analysis::Rokt::JobWrapper {

ProfTimer::ProfTimer(const std::shared_ptr<TimerParam>& param) : timerParam(param) {}
ProfTimer::~ProfTimer() = default;
int ProfTimer::Start() {
    ++starts;
    return startResult;
}
int ProfTimer::Stop() { return stopResult; }
void ProfTimer::RegisterTimerHandler(uint32_t /* tag */,
                                     const std::shared_ptr<TimerHandler>& /* handler */) {}
void ProfTimer::RemoveTimerHandler(uint32_t /* tag */) {}
void ProfTimer::Run(const ErrorContext& /* context */) {}

}  // namespace Analysis::Rokt::JobWrapper

namespace analysis::rokt::transport {

ChannelPoll::~ChannelPoll() = default;
int ChannelPoll::Start() { return startResult; }
int ChannelPoll::Stop() { return stopResult; }
void ChannelPoll::AddReader(uint32_t /* devId */, uint32_t /* channelId */,
                            const std::shared_ptr<ChannelReader>& /* reader */) {}
void ChannelPoll::RemoveReader(uint32_t /* devId */, uint32_t /* channelId */) {}
void ChannelPoll::FlushDrvBuff() {}
void ChannelPoll::Run(const ErrorContext& /* context */) {}

}  // namespace analysis::rokt::transport

namespace tiv::test {

// The linker sends the calls of this program through the second one.
std::vector<std::string> RealSplit(const std::string& text,
                                   char separator) asm("__real_" TIV_SPLIT_SYMBOL);
std::vector<std::string> WrapSplit(const std::string& text,
                                   char separator) asm("__wrap_" TIV_SPLIT_SYMBOL);

std::vector<std::string> WrapSplit(const std::string& text, char separator) {
    return splitsAreEmpty && separator == ' ' ? std::vector<std::string>()
                                              : RealSplit(text, separator);
}

namespace {

using Analysis::Rokt::Common::Config::ConfigManager;
using Analysis::Rokt::JobWrapper::ProfChannelManager;
using Analysis::Rokt::JobWrapper::ProfCtrlcpuJob;
using Analysis::Rokt::JobWrapper::ProfMiniLlcJob;

class FreshTimerManager : public Analysis::Rokt::JobWrapper::TimerManager {};
class FreshChannelManager : public ProfChannelManager {};

class Parts : public ::testing::Test {
 protected:
    Parts() {
        startResult = 0;
        stopResult = 0;
        starts = 0;
    }

    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(Parts, TimerThatDoesNotStartIsNotCounted) {
    FreshTimerManager manager;
    startResult = 7;

    manager.StartProfTimer();
    manager.StartProfTimer();

    EXPECT_EQ(log.Count('E', "StartProfTimer failed"), 2U);
    EXPECT_FALSE(log.Has('I', "StartProfTimer end"));
    EXPECT_EQ(starts, 2);
    startResult = 0;
    manager.StartProfTimer();
    manager.StopProfTimer();
    EXPECT_TRUE(log.Has('I', "StopProfTimer begin"));
}

TEST_F(Parts, TimerThatDoesNotStopIsReported) {
    FreshTimerManager manager;
    manager.StartProfTimer();
    stopResult = 7;

    manager.StopProfTimer();

    EXPECT_EQ(log.OwnTexts('E'), std::vector<std::string>{"StopProfTimer failed"});
    EXPECT_TRUE(log.Has('I', "StopProfTimer end"));
}

TEST_F(Parts, PollerThatDoesNotStopIsReportedAndLetGo) {
    FreshChannelManager manager;
    ASSERT_EQ(manager.Init(), 0);
    stopResult = 7;

    manager.UnInit(false);

    EXPECT_EQ(log.OwnTexts('E'), std::vector<std::string>{"drvChannelPoll_ stop failed"});
    EXPECT_TRUE(log.Has('I', "UnInit Poll Succ"));
    EXPECT_EQ(manager.GetChannelPoller(), nullptr);
}

class ScriptParts : public ScriptJobTest {
 protected:
    // Of platform type 0, which counts its cache through the script.
    ScriptParts() {
        FakeDriver::Instance().SetDeviceInfo(0, 1, 0);
        ConfigManager::Instance().Uninit();
        ConfigManager::Instance().Init();
        params->zelnar_llc_profiling = "on";
        log.Clear();
    }
    ~ScriptParts() override { splitsAreEmpty = false; }
};

TEST_F(ScriptParts, RecorderWithoutACommandIsNotStarted) {
    SetEvents({"0x11"});
    ProfCtrlcpuJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    splitsAreEmpty = true;

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('E', "ProfCtrlcpuJob params empty"));
    EXPECT_TRUE(script.Children().empty());
}

TEST_F(ScriptParts, StatisticWithoutACommandIsNotStarted) {
    SetEvents({"read"});
    ProfMiniLlcJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    splitsAreEmpty = true;

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('E', "profLlcCmd empty"));
    EXPECT_TRUE(script.Children().empty());
}

}  // namespace
}  // namespace tiv::test

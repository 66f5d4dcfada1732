// Tests of the four control requests, from the message to the reply.
#include "device/prof_msg_handler.h"

#include "device/collection_entry.h"
#include "device/device_fixture.h"
#include "device/task_manager.h"
#include "device/task_relationship_mgr.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::JobStartHandler;
using analysis::rokt::device::JobStopHandler;
using analysis::rokt::device::ReplayStartHandler;
using analysis::rokt::device::ReplayStopHandler;
using analysis::rokt::device::TaskManager;
using Analysis::Rokt::TaskHandle::TaskRelationshipMgr;

constexpr const char* SAMPLE_NOTHING = R"({"job_id":"job"})";
constexpr const char* SAMPLE_PIDS = R"({"job_id":"job","pid_profiling":"on"})";

class Handlers : public DeviceTest {
 protected:
    void Start(const std::string& text, const std::string& sampleConfig = SAMPLE_NOTHING) {
        JobStartHandler(session).OnNewMessage(JobStart(text, sampleConfig));
    }
    void Stop(const std::string& text) { JobStopHandler().OnNewMessage(JobStop(text)); }
    void StartReplay(const std::string& text) {
        ReplayStartHandler().OnNewMessage(ReplayStart(text));
    }
    void StopReplay(const std::string& text) { ReplayStopHandler().OnNewMessage(ReplayStop(text)); }

    Answer LastAnswer() const {
        const std::vector<std::string> sent = session->Sent();
        return sent.empty() ? Answer() : AnswerOf(sent.back());
    }
    void ExpectRefusal(const std::string& info) const {
        const Answer answer = LastAnswer();
        EXPECT_TRUE(answer.isResponse);
        EXPECT_FALSE(answer.success);
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.info, info);
    }
    void ExpectSuccess() const {
        const Answer answer = LastAnswer();
        EXPECT_TRUE(answer.success);
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.info, "");
    }
    static bool HasTask(const std::string& key) {
        return TaskManager::Instance().GetTask(key) != nullptr;
    }

    std::shared_ptr<MemoryTransport> session = FileReceiver("job", 0);
    const std::string context = ContextText("0", "job");
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(Handlers, EntryLinesNameTheHandlers) {
    Start("");
    Stop("");
    StartReplay("");
    StopReplay("");

    EXPECT_TRUE(log.Has('I', "[JobStartHandler::OnNewMessage] Entering handler"));
    EXPECT_TRUE(log.Has('I', "[JobStopHandler::OnNewMessage] Entering handler"));
    EXPECT_TRUE(log.Has('I', "[StartHandler::OnNewMessage] Entering handler"));
    EXPECT_TRUE(log.Has('I', "[StopHandler::OnNewMessage] Entering handler"));
}

TEST_F(Handlers, MessageOfAnotherTypeIsPassedOverInSilence) {
    const auto other = std::make_shared<proto::FileChunkFlushReq>();

    JobStartHandler(session).OnNewMessage(other);
    JobStopHandler().OnNewMessage(other);
    ReplayStartHandler().OnNewMessage(other);
    ReplayStopHandler().OnNewMessage(other);

    EXPECT_EQ(log.CountOf('E'), 0u);
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handlers, EmptyContextGetsNoReply) {
    Start("");
    Stop("");
    StartReplay("");
    StopReplay("");

    EXPECT_EQ(log.Count('E', "Failed to parse jobctx json ."), 4u);
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handlers, BrokenContextIsQuotedAndGetsNoReply) {
    log.Clear();

    Start("{broken");
    Stop("{broken");
    StartReplay("{broken");
    StopReplay("{broken");

    EXPECT_EQ(log.Count('E', "Failed to parse jobctx json {broken."), 4u);
    EXPECT_FALSE(log.Has('E', "Get Task Failed"));
    EXPECT_FALSE(log.Contains('E', "is not valid!"));
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handlers, DeviceNumber64IsNotValidFor63Is) {
    Start(ContextText("64", "job"));
    Start(ContextText("63", "job"));

    EXPECT_TRUE(log.Has('E', "[JobStartHandler::OnNewMessage]jobCtx.dev_id:64 is not valid!"));
    EXPECT_FALSE(HasTask("64_job"));
    EXPECT_TRUE(HasTask("63_job"));
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handlers, JobIdOf512CharactersPasses513DoNot) {
    const std::string longest(512, 'a');
    const auto passes = FileReceiver(longest, 0);
    const auto refused = FileReceiver(longest + "a", 0);

    Start(ContextText("0", longest));
    Start(ContextText("0", longest + "a"));

    EXPECT_TRUE(HasTask("0_" + longest));
    EXPECT_FALSE(HasTask("0_" + longest + "a"));
    EXPECT_EQ(passes->Sent().size(), 1u);
    EXPECT_TRUE(refused->Sent().empty());
    EXPECT_TRUE(
        log.Has('E', "[JobStartHandler::OnNewMessage]jobCtx.job_id:" + longest + "a is illegal"));
}

TEST_F(Handlers, JobIdWithUnderscoreOrDotGetsNoReply) {
    const auto underscore = FileReceiver("a_b", 0);
    const auto dot = FileReceiver("a.b", 0);

    Start(ContextText("0", "a_b"));
    Start(ContextText("0", "a.b"));

    EXPECT_TRUE(log.Has('E', "[JobStartHandler::OnNewMessage]jobCtx.job_id:a_b is illegal"));
    EXPECT_TRUE(log.Has('E', "[JobStartHandler::OnNewMessage]jobCtx.job_id:a.b is illegal"));
    EXPECT_TRUE(underscore->Sent().empty());
    EXPECT_TRUE(dot->Sent().empty());
}

TEST_F(Handlers, EmptyJobIdIsIllegal) {
    Start(ContextText("0", ""));

    EXPECT_TRUE(log.Has('E', "[JobStartHandler::OnNewMessage]jobCtx.job_id: is illegal"));
    EXPECT_FALSE(HasTask("0_"));
}

TEST_F(Handlers, DeviceIsCheckedBeforeTheJobId) {
    Start(ContextText("64", "a_b"));

    EXPECT_TRUE(log.Has('E', "[JobStartHandler::OnNewMessage]jobCtx.dev_id:64 is not valid!"));
    EXPECT_FALSE(log.Has('E', "[JobStartHandler::OnNewMessage]jobCtx.job_id:a_b is illegal"));
}

TEST_F(Handlers, OnlyJobStartChecksTheIdentity) {
    const std::string odd = ContextText("99", "a_b");

    Stop(odd);
    StartReplay(odd);
    StopReplay(odd);

    EXPECT_EQ(log.Count('E', "Get Task Failed"), 3u);
    EXPECT_EQ(log.CountOf('E'), 3u);
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handlers, LeadingZeroMeansTheSameDeviceUnderAnotherKey) {
    const auto other = FileReceiver("x", 8);

    Start(ContextText("08", "x"));
    Start(ContextText("8", "x"));

    EXPECT_EQ(TaskManager::Instance().GetTask("08_x")->GetDevId(), 8);
    EXPECT_NE(TaskManager::Instance().GetTask("08_x"), TaskManager::Instance().GetTask("8_x"));
}

TEST_F(Handlers, StartedJobIsAnsweredWithSuccess) {
    Start(context);

    ExpectSuccess();
    const std::string size = std::to_string(session->Sent().at(0).size());
    EXPECT_TRUE(log.Contains('I', "Reply job start, status={"));
    EXPECT_TRUE(log.Contains('I', ", devIndexId=0, ret=" + size));
}

TEST_F(Handlers, ReplyGoesToTheTasksOwnDevice) {
    const auto onDevice2 = FileReceiver("mapped", 2);
    TaskRelationshipMgr::Instance().AddRelation(5, 2);

    Start(ContextText("5", "mapped"));

    ASSERT_EQ(onDevice2->Sent().size(), 1u);
    EXPECT_TRUE(AnswerOf(onDevice2->Sent().at(0)).success);
}

TEST_F(Handlers, EveryReplyGoesToTheTasksOwnDeviceAndIsLogged) {
    const auto onDevice2 = FileReceiver("mapped", 2);
    const auto data = FileUploader("mapped");
    TaskRelationshipMgr::Instance().AddRelation(5, 2);
    const std::string mapped = ContextText("5", "mapped");

    Start(mapped, R"({"job_id":"mapped","pid_profiling":"on"})");
    StartReplay(mapped);
    StopReplay(mapped);
    Stop(mapped);

    ASSERT_EQ(onDevice2->Sent().size(), 4u);
    analysis::rokt::message::StatusInfo success;
    success.status = 0;
    const std::string rest = ", status=" + success.ToString() + ", devIndexId=2, ret=" +
                             std::to_string(onDevice2->Sent().at(0).size());
    for (const char* start : {"Reply job start", "Reply start", "Stop", "Reply job stop"}) {
        EXPECT_TRUE(log.Has('I', start + rest)) << start;
    }
}

TEST_F(Handlers, SecondJobStartIsRefusedAndTheFirstRunsOn) {
    Start(context);
    const auto first = TaskManager::Instance().GetTask("0_job");

    Start(context);

    ExpectRefusal("Create task failed.");
    EXPECT_TRUE(log.Has('E', "Create Task Failed"));
    EXPECT_EQ(TaskManager::Instance().GetTask("0_job"), first);
}

TEST_F(Handlers, RefusedCreationOnDevice1FindsNoReceiver) {
    const auto onDevice1 = FileReceiver("other", 1);
    Start(ContextText("1", "other"));

    Start(ContextText("1", "other"));

    EXPECT_EQ(onDevice1->Sent().size(), 1u);
    EXPECT_TRUE(log.Has('E', "Can't find jobId other, devIndexId: 0 receiver"));
}

TEST_F(Handlers, FailedJobStartWithoutWordsGetsTheDefaultText) {
    FakeDriver::Instance().calls.Return("prof_drv_get_channels", 1);

    Start(context);

    ExpectRefusal("start job failed");
    EXPECT_TRUE(HasTask("0_job"));
}

TEST_F(Handlers, WordsOfTheEngineWinOverTheDefaultText) {
    Start(context, "nonsense");

    ExpectRefusal("invalid sample configuration");
}

TEST_F(Handlers, RowOfAFailedStartBlocksTheNextStartUntilAStop) {
    Start(context, "nonsense");

    Start(context);
    ExpectRefusal("Create task failed.");
    Stop(context);
    ExpectRefusal("Profiling is not started on device");

    EXPECT_FALSE(HasTask("0_job"));
}

TEST_F(Handlers, StopOfAnUnknownJobGetsNoReply) {
    Stop(context);

    EXPECT_TRUE(log.Has('E', "Get Task Failed"));
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handlers, StoppedJobIsAnsweredAndItsRowGoes) {
    Start(context);

    Stop(context);

    ExpectSuccess();
    EXPECT_FALSE(HasTask("0_job"));
    EXPECT_TRUE(log.Contains('I', "Reply job stop, status={"));
    EXPECT_TRUE(log.Has('I', "DeleteTask, JobId(0_job)"));
}

TEST_F(Handlers, ReplyOfAStopGoesBeforeTheRow) {
    Start(context);
    bool rowAtReply = false;
    session->OnSend([&] { rowAtReply = HasTask("0_job"); });

    Stop(context);

    EXPECT_TRUE(rowAtReply);
    EXPECT_FALSE(HasTask("0_job"));
    session->OnSend({});
}

TEST_F(Handlers, RowThatVanishedDuringTheStopIsAnError) {
    Start(context);
    session->OnSend([] { TaskManager::Instance().DeleteTask("0_job"); });

    Stop(context);

    EXPECT_TRUE(log.Has('E', "DeleteTask failed.jobId: 0_job"));
    session->OnSend({});
}

TEST_F(Handlers, FailedStopIsAnsweredAndItsRowGoesToo) {
    const auto data = FileUploader("job");
    Start(context);
    std::shared_ptr<analysis::rokt::transport::Uploader> uploader;
    analysis::rokt::transport::UploaderMgr::Instance().GetUploader("job", uploader);
    uploader->Stop(false);

    Stop(context);

    ExpectRefusal("Stop profiling failed, please check it or see log for more info");
    EXPECT_FALSE(HasTask("0_job"));
}

TEST_F(Handlers, ReplayOfAnUnknownJobGetsNoReply) {
    StartReplay(context);
    StopReplay(context);

    EXPECT_EQ(log.Count('E', "Get Task Failed"), 2u);
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handlers, ReplayOfAFailedStartIsRefused) {
    Start(context, "nonsense");

    StartReplay(context);

    ExpectRefusal("Profiling is not started on device");
    EXPECT_TRUE(HasTask("0_job"));
}

TEST_F(Handlers, ReplayWithAllSwitchesOffEndsTheTaskAndKeepsItsRow) {
    Start(context);

    StartReplay(context);
    ExpectRefusal("start failed");
    EXPECT_TRUE(HasTask("0_job"));
    Stop(context);

    ExpectRefusal("Profiling is not started on device");
    EXPECT_FALSE(HasTask("0_job"));
}

TEST_F(Handlers, ReplayThatRunsIsAnsweredAndKeepsTheRow) {
    const auto data = FileUploader("job");
    Start(context, SAMPLE_PIDS);

    StartReplay(context);
    ExpectSuccess();
    StopReplay(context);
    ExpectSuccess();

    EXPECT_TRUE(HasTask("0_job"));
    EXPECT_TRUE(log.Contains('I', "Reply start, status={"));
    EXPECT_TRUE(log.Contains('I', "Stop, status={"));
    EXPECT_FALSE(log.Contains('I', "Reply stop"));
}

TEST_F(Handlers, DefaultTextOfAFailedReplayStopIsUsedOnlyWithoutWords) {
    Start(context, "nonsense");

    StopReplay(context);

    ExpectRefusal("Profiling is not started on device");
}

}  // namespace
}  // namespace tiv::test

// Tests of the handshake that makes a data session.
#include <algorithm>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "device/handshake_fixture.h"
#include "support/failing_new.h"
#include "support/fake_mm.h"

namespace tiv::test {
namespace {

using analysis::rokt::ProfileFileChunk;
using analysis::rokt::transport::Uploader;
using analysis::rokt::transport::UploaderMgr;

class DataSession : public HandshakeTest {};

TEST_F(DataSession, AcceptedDataSessionAnswersThroughItsQueue) {
    EXPECT_EQ(OpenData(session, "job"), 0);

    ExpectSuccess(session);
    EXPECT_NE(FindUploader("job"), nullptr);
    EXPECT_EQ(UploaderMgr::Instance().GetJobId(2, "def_mode"), "job");
    EXPECT_TRUE(log.Has('I', "Device 2 Received data handshake"));
    EXPECT_TRUE(log.Contains('I', "Reply data handshake, statusInfo={"));
    EXPECT_TRUE(log.Contains('I', ", response sent size:0, resp size:"));
}

TEST_F(DataSession, UploaderThreadIsNamedAfterItsJob) {
    const std::string line = "New thread QTRX_Upld_a-long-job-id begins to run";

    EXPECT_EQ(OpenData(session, "a-long-job-id"), 0);
    ASSERT_TRUE(log.WaitFor('I', line));

    // The system keeps 15 bytes.
    const std::vector<LogLine> lines = log.Lines();
    const auto begins = std::find_if(lines.begin(), lines.end(),
                                     [&](const LogLine& entered) { return entered.text == line; });
    EXPECT_EQ(begins->thread, "QTRX_Upld_a-lon");
}

TEST_F(DataSession, ResponseOfADataSessionComesBeforeItsChunks) {
    session->HoldSends(true);
    OpenData(session, "job");
    auto chunk = std::make_shared<ProfileFileChunk>();
    chunk->extraInfo = "job.2";
    ASSERT_EQ(UploaderMgr::Instance().UploadData("job", chunk), 0);

    session->HoldSends(false);
    ASSERT_TRUE(session->WaitForSent(2));

    EXPECT_TRUE(AnswerOf(session->Sent().at(0)).success);
    EXPECT_EQ(session->Sent().at(1), "chunk  job.2");
}

TEST_F(DataSession, WhoeverIsToldByTheAnswerFindsTheUploader) {
    std::promise<std::shared_ptr<Uploader>> found;
    session->OnSend([&] { found.set_value(FindUploader("job")); });
    std::future<std::shared_ptr<Uploader>> answer = found.get_future();
    // The thread of the handshake is held up with its answer queued.
    log.OnText("Reply data handshake", [&] { answer.wait_for(std::chrono::milliseconds(20)); });

    EXPECT_EQ(OpenData(session, "job"), 0);

    EXPECT_TRUE(answer.get() != nullptr);
}

TEST_F(DataSession, DataSessionQueues512Chunks) {
    session->HoldSends(true);
    OpenData(session, "job");
    ASSERT_TRUE(session->WaitForHeldSend());
    const auto uploader = FindUploader("job");
    for (int i = 0; i < 512; ++i) {
        ASSERT_EQ(uploader->UploadData("x", 1), 0);
    }
    EXPECT_FALSE(log.Contains('W', "IsFULL"));

    std::thread producer([&] { EXPECT_EQ(uploader->UploadData("x", 1), 0); });
    EXPECT_TRUE(
        log.WaitFor('W', "IsFULL, QueueName: UploaderQueue, QueueCapacity:512, QueueSize:512"));
    session->HoldSends(false);
    producer.join();
}

TEST_F(DataSession, DataSessionChecksItsModeAndJobId) {
    const Session badMode = NewSession();
    const Session badJob = NewSession();

    EXPECT_EQ(OpenData(session, "job", "system-wide"), 0);
    EXPECT_EQ(UploaderMgr::Instance().GetJobId(2, "system-wide"), "job");
    EXPECT_EQ(OpenData(badMode, "job", "abc"), -1);
    EXPECT_EQ(OpenData(badJob, "a_b"), -1);

    ExpectSuccess(session);
    ExpectRefusal(badMode, "");
    ExpectRefusal(badJob, "");
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]profilingMode is invalid!"));
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]jobID is invalid!"));
}

TEST_F(DataSession, DataSessionChecksItsJobIdFirst) {
    EXPECT_EQ(OpenData(session, "a_b", "abc"), -1);

    EXPECT_TRUE(log.Has('E', "[HandleDataSession]jobID is invalid!"));
    EXPECT_FALSE(log.Has('E', "[HandleDataSession]profilingMode is invalid!"));
}

TEST_F(DataSession, DeviceNumberOfADataSessionIsNotLookedAt) {
    const auto handshake = DataHandshake("job", "");
    handshake->set_devid(64);

    EXPECT_EQ(Handle(session, handshake), 0);

    ExpectSuccess(session);
}

TEST_F(DataSession, NullUploaderIsRefused) {
    EXPECT_EQ(entry.HandleDataSession(nullptr, *DataHandshake("job", ""), 2), -1);
}

TEST_F(DataSession, UploaderWithoutAThreadIsRefused) {
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);

    EXPECT_EQ(OpenData(session, "job"), -1);

    ExpectRefusal(session, "");
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]Failed to start uploader thread, ret=-1"));
    EXPECT_EQ(FindUploader("job"), nullptr);
}

TEST_F(DataSession, UploaderWithoutAQueueIsRefused) {
    const auto uploader = std::make_shared<Uploader>(session);
    const auto handshake = DataHandshake("job", "");
    log.SetLevel(DLOG_ERROR);
    int ret = 0;
    {
        const FailingNew failing(0);
        ret = entry.HandleDataSession(uploader, *handshake, 2);
    }

    EXPECT_EQ(ret, -1);
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]Failed to init uploader thread, initRet=-1"));
}

}  // namespace
}  // namespace tiv::test

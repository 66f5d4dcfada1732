// Tests of the orderly end of a data session.
#include "device/data_session_end.h"

#include <algorithm>
#include <thread>

#include "device/collection_entry.h"
#include "device/device_fixture.h"
#include "message/codec.h"
#include "message/job_context.h"
#include "support/failing_new.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {
namespace {

using analysis::rokt::ProfileFileChunk;
using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::FinishDataSession;
using analysis::rokt::message::Codec;
using analysis::rokt::message::JobContext;
using analysis::rokt::transport::Uploader;
using analysis::rokt::transport::UploaderMgr;

class DataSessionEnd : public DeviceTest {
 protected:
    static std::shared_ptr<Uploader> FindUploader(const std::string& jobId) {
        std::shared_ptr<Uploader> uploader;
        UploaderMgr::Instance().GetUploader(jobId, uploader);
        return uploader;
    }

    static std::shared_ptr<ProfileFileChunk> Chunk() {
        auto chunk = std::make_shared<ProfileFileChunk>();
        chunk->fileName = "data/a.null";
        chunk->extraInfo = "job.3";
        return chunk;
    }
};

TEST_F(DataSessionEnd, JobWithoutUploaderOnlyLogs) {
    EXPECT_EQ(FinishDataSession(3, "job"), 0);

    const std::vector<std::string> expected = {
        "Entering device(3) FinishCollection...jobId:job", "reset device(3) uploader.",
        "Del id job uploader...", "Device(3) leaving finish_collection..."};
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'), expected);
}

TEST_F(DataSessionEnd, FinishComesBehindEveryQueuedChunk) {
    const auto session = FileUploader("job");
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(UploaderMgr::Instance().UploadData("job", Chunk()), 0);
    }

    EXPECT_EQ(FinishDataSession(3, "job"), 0);

    const std::vector<std::string> sent = session->Sent();
    ASSERT_EQ(sent.size(), 501u);
    EXPECT_EQ(sent[499], "chunk data/a.null job.3");
    EXPECT_NE(std::dynamic_pointer_cast<proto::DataChannelFinish>(Codec::DecodeMessage(sent[500])),
              nullptr);
}

TEST_F(DataSessionEnd, FinishNamesOnlyDeviceAndJob) {
    const auto session = FileUploader("job");

    EXPECT_EQ(FinishDataSession(3, "job"), 0);

    const auto finish = std::dynamic_pointer_cast<proto::DataChannelFinish>(
        Codec::DecodeMessage(session->Sent().at(0)));
    JobContext expected;
    expected.dev_id = "3";
    expected.job_id = "job";
    EXPECT_EQ(finish->hdr().job_ctx(), expected.ToString());
    EXPECT_EQ(finish->hdr().magic(), "");
}

TEST_F(DataSessionEnd, UploaderIsGoneAfterwards) {
    const auto session = FileUploader("job");

    EXPECT_EQ(FinishDataSession(3, "job"), 0);

    EXPECT_EQ(FindUploader("job"), nullptr);
    EXPECT_EQ(session.use_count(), 1);
    EXPECT_TRUE(Logged('I', "Release device(3) uploader."));
    EXPECT_TRUE(Logged('I', "Device(3) data session finished"));
}

TEST_F(DataSessionEnd, QueueIsEmptiedBeforeTheUploaderGoes) {
    const auto session = FileUploader("job");

    EXPECT_EQ(FinishDataSession(3, "job"), 0);

    const std::vector<std::string> lines = RecordedLog::Instance().OwnTexts('I');
    const auto flushed = std::find(lines.begin(), lines.end(), "Device(3) data session finished");
    const auto deleted = std::find(lines.begin(), lines.end(), "Del id job uploader...");
    ASSERT_NE(deleted, lines.end());
    EXPECT_LT(flushed, deleted);
}

TEST_F(DataSessionEnd, RefusedFinishLeavesTheUploaderAndIsReturned) {
    const auto session = FileUploader("job");
    FindUploader("job")->Stop(false);

    EXPECT_EQ(FinishDataSession(3, "job"), -1);

    EXPECT_NE(FindUploader("job"), nullptr);
    EXPECT_TRUE(Logged('I', "Upload data failed when collection finished"));
    EXPECT_FALSE(Logged('I', "Device(3) data session finished"));
    EXPECT_FALSE(Logged('I', "Del id job uploader..."));
}

TEST_F(DataSessionEnd, FinishThatDoesNotFitInMemoryLeavesTheUploader) {
    const auto session = FileUploader("job");
    RecordedLog::Instance().SetLevel(DLOG_ERROR);
    int ret = 0;
    {
        const FailingNew failing;
        ret = FinishDataSession(3, "job");
    }

    EXPECT_EQ(ret, -1);
    EXPECT_TRUE(Logged('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_NE(FindUploader("job"), nullptr);
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(DataSessionEnd, TableOfUploadersStaysFreeWhileTheLastSendBlocks) {
    const auto session = FileUploader("job");
    session->HoldSends(true);

    std::thread end([] { EXPECT_EQ(FinishDataSession(3, "job"), 0); });
    ASSERT_TRUE(session->WaitForHeldSend());
    ASSERT_TRUE(RecordedLog::Instance().WaitFor('I', "Stopping uploader, force_quit:1."));
    EXPECT_EQ(FindUploader("job"), nullptr);
    session->HoldSends(false);
    end.join();

    EXPECT_EQ(session->Sent().size(), 1u);
}

TEST_F(DataSessionEnd, CollectionEntryEndsASession) {
    const auto session = FileUploader("job");

    EXPECT_EQ(CollectionEntry::Instance().FinishCollection(3, "job"), 0);

    EXPECT_EQ(session->Sent().size(), 1u);
}

}  // namespace
}  // namespace tiv::test

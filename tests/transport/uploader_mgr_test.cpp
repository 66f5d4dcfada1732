// The table of uploaders and the road of a chunk through it.
#include "transport/uploader_mgr.h"

#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

#include "hdc/hdc_transport.h"
#include "message/codec.h"
#include "message/profiler.pb.h"
#include "support/failing_new.h"
#include "transport/recording_transport.h"
#include "transport/uploader_fixture.h"

namespace tiv::test {

using analysis::rokt::message::Codec;
using analysis::rokt::message::JobContext;
using analysis::rokt::transport::FileChunkInfo;
using analysis::rokt::transport::HDCTransport;
using analysis::rokt::transport::UploaderMgr;
using testing::ElementsAre;
using testing::IsEmpty;

// A table of the test's own in place of the process-wide one.
class OwnUploaderMgr : public UploaderMgr {};

class UploaderMgrTest : public UploaderFixture {
 protected:
    std::shared_ptr<Uploader> Find(const std::string& id) {
        std::shared_ptr<Uploader> found;
        mgr->GetUploader(id, found);
        return found;
    }

    void ExpectTableFreeWhile(const std::function<void()>& ending) {
        std::thread ender(ending);
        EXPECT_TRUE(log.WaitFor('I', "Stopping uploader, force_quit:1."));

        EXPECT_EQ(Find("other"), nullptr);

        link->Open();
        ender.join();
        EXPECT_THAT(link->Sent(), ElementsAre("chunk:held"));
    }

    std::shared_ptr<JobContext> context = std::make_shared<JobContext>();
    std::unique_ptr<OwnUploaderMgr> mgr = std::make_unique<OwnUploaderMgr>();
};

TEST_F(UploaderMgrTest, IsOneForTheProcess) {
    EXPECT_EQ(&UploaderMgr::Instance(), &UploaderMgr::Instance());
    EXPECT_EQ(UploaderMgr::Instance().Init(), 0);
}

TEST_F(UploaderMgrTest, UnknownIdKeepsNothing) {
    EXPECT_EQ(mgr->UploadData("x", MakeChunk("a")), -1);
    EXPECT_EQ(mgr->UploadData("x", "abc", 3), -1);

    EXPECT_TRUE(log.Has('E', "Get id[x] uploader failed"));
    EXPECT_TRUE(log.Has('E', "Get id[x] uploader failed, dataLen:3 bytes"));
    EXPECT_EQ(Find("x"), nullptr);
}

TEST_F(UploaderMgrTest, CreatedUploaderRunsUnderItsName) {
    EXPECT_EQ(mgr->CreateUploader("job1", link, 8), 0);
    EXPECT_EQ(mgr->UploadData("job1", MakeChunk("a")), 0);
    EXPECT_EQ(mgr->UploadData("job1", "b", 1), 0);

    EXPECT_TRUE(link->WaitForSent(2));
    EXPECT_THAT(link->Sent(), ElementsAre("chunk:a", "raw:b"));
    EXPECT_EQ(Find("job1")->GetThreadName(), "QTRX_Upld_job1");
    EXPECT_EQ(mm.calls.Calls("mmSetCurrentThreadName").at(0).Text("name"), "QTRX_Upld_job1");
}

TEST_F(UploaderMgrTest, CreatedUploaderHasItsNameBeforeItsThreadRuns) {
    const auto create = mm.mmCreateTaskWithThreadAttr;
    mm.mmCreateTaskWithThreadAttr = [&](mmThread* thread, const mmUserBlock* block,
                                        const mmThreadAttr* attributes) {
        const int32_t ret = create(thread, block, attributes);
        EXPECT_TRUE(mm.calls.WaitForCalls("mmSetCurrentThreadName", 1));
        return ret;
    };

    EXPECT_EQ(mgr->CreateUploader("job1", link, 8), 0);

    EXPECT_EQ(mm.calls.Calls("mmSetCurrentThreadName").at(0).Text("name"), "QTRX_Upld_job1");
}

TEST_F(UploaderMgrTest, CreateRefusesANullTransport) {
    EXPECT_EQ(mgr->CreateUploader("job1", nullptr, 8), -1);
    EXPECT_THAT(log.Texts('E'), ElementsAre("Transport is invalid!"));
}

TEST_F(UploaderMgrTest, CreateReportsAThreadThatDoesNotStart) {
    mm.calls.Return("mmCreateTaskWithThreadAttr", 1);

    EXPECT_EQ(mgr->CreateUploader("job1", link, 8), -1);

    EXPECT_TRUE(log.Has('E', "Failed to start uploader thread"));
    EXPECT_EQ(Find("job1"), nullptr);
}

TEST_F(UploaderMgrTest, CreateReportsWantOfMemory) {
    int result = 0;
    {
        FailingNew failing;
        result = mgr->CreateUploader("job1", link, 8);
    }

    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.Texts('E'), ElementsAre("make shared failed, message: std::bad_alloc"));
}

TEST_F(UploaderMgrTest, CreateReportsAFailedInit) {
    int result = 0;
    {
        FailingNew failing(1);
        result = mgr->CreateUploader("job1", link, 8);
    }

    EXPECT_EQ(result, -1);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(log.Has('E', "Failed to init uploader"));
}

TEST_F(UploaderMgrTest, EmptyIdAndNullUploaderAreIgnored) {
    mgr->AddUploader("", MakeUploader(8));
    mgr->AddUploader("job1", nullptr);

    EXPECT_EQ(Find(""), nullptr);
    EXPECT_EQ(Find("job1"), nullptr);
    EXPECT_TRUE(log.Has('I', "id:  Entering AddUploader..."));
    EXPECT_TRUE(log.Has('I', "id: job1 Entering AddUploader..."));
    EXPECT_EQ(log.CountOf('E') + log.CountOf('W'), 0U);
}

TEST_F(UploaderMgrTest, NullUploaderDoesNotReplaceOne) {
    const auto uploader = MakeUploader(8);
    mgr->AddUploader("job1", uploader);
    mgr->AddUploader("job1", nullptr);

    EXPECT_EQ(Find("job1"), uploader);
}

TEST_F(UploaderMgrTest, LookUpOfAnUnknownIdLeavesTheOutAlone) {
    const auto uploader = MakeUploader(8);
    std::shared_ptr<Uploader> out = uploader;

    mgr->GetUploader("x", out);

    EXPECT_EQ(out, uploader);
    EXPECT_TRUE(log.Has('D', "Get id x uploader..."));
}

TEST_F(UploaderMgrTest, LaterUploaderReplacesAndEndsTheEarlierOne) {
    auto first = MakeUploader(8);
    const std::weak_ptr<Uploader> watched = first;
    const auto second = MakeUploader(8);
    mgr->AddUploader("job1", first);
    first.reset();

    mgr->AddUploader("job1", second);

    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(Find("job1"), second);
}

TEST_F(UploaderMgrTest, ReplacedUploaderEndsWithTheTableFree) {
    mgr->AddUploader("job1", MakeHeldUploader(8));
    const auto second = std::make_shared<Uploader>(nullptr);

    ExpectTableFreeWhile([&] { mgr->AddUploader("job1", second); });
}

TEST_F(UploaderMgrTest, AnswerComesBeforeTheRows) {
    const auto uploader = MakeUploader(8);

    mgr->AnswerAndAdd(3, "", "job1", uploader, [this] { log.Clear(); });

    EXPECT_THAT(log.OwnTexts('I'),
                ElementsAre("devModeKey:3_def_mode, jobId:job1 Entering UpdateDevModeJobMap...",
                            "Add to devModeJobMap_", "id: job1 Entering AddUploader..."));
    EXPECT_EQ(Find("job1"), uploader);
    EXPECT_EQ(mgr->GetJobId(3, ""), "job1");
}

TEST_F(UploaderMgrTest, LookUpDuringTheAnswerWaitsForTheUploader) {
    const auto uploader = MakeUploader(8);
    std::future<std::shared_ptr<Uploader>> found;

    mgr->AnswerAndAdd(3, "", "job1", uploader, [&] {
        found = std::async(std::launch::async, [&] { return Find("job1"); });
        found.wait_for(std::chrono::milliseconds(20));
    });

    EXPECT_EQ(found.get(), uploader);
}

TEST_F(UploaderMgrTest, UploaderThatAnAnsweredOneReplacesEndsWithTheTableFree) {
    mgr->AddUploader("job1", MakeHeldUploader(8));
    const auto second = std::make_shared<Uploader>(nullptr);

    ExpectTableFreeWhile([&] { mgr->AnswerAndAdd(3, "", "job1", second, [] {}); });
}

TEST_F(UploaderMgrTest, FailedAnswerFilesNothingAndLeavesTheTableFree) {
    const auto uploader = MakeUploader(8);
    const auto fail = [] { throw std::runtime_error("no answer"); };

    EXPECT_THROW(mgr->AnswerAndAdd(3, "", "job1", uploader, fail), std::runtime_error);

    EXPECT_EQ(Find("job1"), nullptr);
    EXPECT_EQ(mgr->GetJobId(3, ""), "");
}

TEST_F(UploaderMgrTest, UninitEndsUploadersWithTheTableFree) {
    mgr->AddUploader("job1", MakeHeldUploader(8));

    ExpectTableFreeWhile([&] { EXPECT_EQ(mgr->Uninit(), 0); });
}

TEST_F(UploaderMgrTest, DelAllEndsUploadersWithTheTableFree) {
    mgr->AddUploader("job1", MakeHeldUploader(8));

    ExpectTableFreeWhile([&] { EXPECT_EQ(mgr->DelAllUploader(), 0); });
}

TEST_F(UploaderMgrTest, UninitEmptiesBothTables) {
    mgr->AddUploader("job1", MakeUploader(8));
    mgr->UpdateDevModeJobMap(3, "", "job1");

    EXPECT_EQ(mgr->Uninit(), 0);

    EXPECT_EQ(Find("job1"), nullptr);
    EXPECT_EQ(mgr->GetJobId(3, ""), "");
}

TEST_F(UploaderMgrTest, DelAllLeavesTheJobsAlone) {
    mgr->AddUploader("job1", MakeUploader(8));
    mgr->UpdateDevModeJobMap(3, "", "job1");

    EXPECT_EQ(mgr->DelAllUploader(), 0);

    EXPECT_EQ(Find("job1"), nullptr);
    EXPECT_EQ(mgr->GetJobId(3, ""), "job1");
    EXPECT_TRUE(log.Has('I', "DelAllUploader"));
}

TEST_F(UploaderMgrTest, DelLetsTheUploaderGo) {
    auto uploader = MakeUploader(8);
    const std::weak_ptr<Uploader> watched = uploader;
    mgr->AddUploader("job1", uploader);
    uploader.reset();

    mgr->DelUploader("job1");
    mgr->DelUploader("unknown");

    EXPECT_TRUE(watched.expired());
    EXPECT_TRUE(log.Has('I', "Del id job1 uploader..."));
    EXPECT_TRUE(log.Has('I', "Del id unknown uploader..."));
}

TEST_F(UploaderMgrTest, KeyOfAnEmptyModeIsDefMode) {
    mgr->UpdateDevModeJobMap(3, "", "job1");

    EXPECT_EQ(mgr->GetJobId(3, ""), "job1");
    EXPECT_EQ(mgr->GetJobId(3, "def_mode"), "job1");
    EXPECT_EQ(mgr->GetJobId(0, ""), "");
    EXPECT_EQ(mgr->GetJobId(3, "system-wide"), "");
    EXPECT_TRUE(log.Has('I', "devModeKey:3_def_mode, jobId:job1 Entering UpdateDevModeJobMap..."));
    EXPECT_TRUE(log.Has('I', "devModeKey:3_def_mode, Entering GetJobId..."));
}

TEST_F(UploaderMgrTest, LaterJobOfADeviceAndModeReplacesTheEarlierOne) {
    mgr->UpdateDevModeJobMap(3, "system-wide", "job1");
    EXPECT_EQ(log.Count('I', "Add to devModeJobMap_"), 1U);
    EXPECT_EQ(log.Count('I', "Upadate devModeJobMap_"), 0U);

    mgr->UpdateDevModeJobMap(3, "system-wide", "job2");

    EXPECT_EQ(log.Count('I', "Add to devModeJobMap_"), 1U);
    EXPECT_EQ(log.Count('I', "Upadate devModeJobMap_"), 1U);
    EXPECT_EQ(mgr->GetJobId(3, "system-wide"), "job2");
}

TEST_F(UploaderMgrTest, BlockedPushLeavesTheTableFree) {
    mgr->AddUploader("job1", MakeHeldUploader(1));
    EXPECT_EQ(mgr->UploadData("job1", MakeChunk("queued")), 0);
    std::thread producer([&] { EXPECT_EQ(mgr->UploadData("job1", MakeChunk("blocked")), 0); });
    EXPECT_TRUE(log.WaitFor('W', "IsFULL, QueueName: UploaderQueue, QueueCapacity:1, QueueSize:1"));

    EXPECT_EQ(Find("other"), nullptr);
    link->Open();
    producer.join();

    EXPECT_TRUE(link->WaitForSent(3));
    EXPECT_THAT(link->Sent(), ElementsAre("chunk:held", "chunk:queued", "chunk:blocked"));
}

TEST_F(UploaderMgrTest, CtrlFileDataBecomesAChunk) {
    context->job_id = "job1";
    context->dev_id = "3";
    const auto session = FakeDriver::Instance().NewSession();
    const auto transport = std::make_shared<HDCTransport>(session, false, nullptr);
    ASSERT_EQ(mgr->CreateUploader("job1", transport, 8), 0);

    EXPECT_EQ(mgr->UploadCtrlFileData("job1", "abc", {"info.json.tag", true, 5}, context), 0);

    ASSERT_TRUE(FakeDriver::Instance().WaitForSent(session, 1));
    const std::string sent = FakeDriver::Instance().Sent(session).at(0);
    const auto request = std::dynamic_pointer_cast<analysis::rokt::proto::FileChunkReq>(
        Codec::DecodeMessage(sent.substr(21, sent.size() - 24)));
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->filename(), "info.json");
    EXPECT_EQ(request->chunk(), "abc");
    EXPECT_EQ(request->offset(), -1);
    EXPECT_EQ(request->datamodule(), 5);
    EXPECT_TRUE(request->islastchunk());
    EXPECT_THAT(request->hdr().job_ctx(), testing::HasSubstr("\"job1\""));
}

TEST_F(UploaderMgrTest, CtrlFileDataFillsEveryFieldOfItsChunk) {
    context->job_id = "job1";
    context->dev_id = "3";
    const auto recorder = std::make_shared<RecordingTransport>();
    ASSERT_EQ(mgr->CreateUploader("job1", recorder, 8), 0);

    EXPECT_EQ(mgr->UploadCtrlFileData("job1", "abc", {"info.json", true, 5}, context), 0);

    ASSERT_TRUE(recorder->WaitForChunks(1));
    const ProfileFileChunk chunk = recorder->Chunks().front();
    EXPECT_EQ(chunk.fileName, "info.json");
    EXPECT_EQ(chunk.offset, -1);
    EXPECT_EQ(chunk.chunk, "abc");
    EXPECT_EQ(chunk.chunkSize, 3U);
    EXPECT_TRUE(chunk.isLastChunk);
    EXPECT_EQ(chunk.chunkModule, 5U);
    EXPECT_EQ(chunk.extraInfo, "job1.3");
}

TEST_F(UploaderMgrTest, CtrlFileDataWithOnlyANameIsOfModuleZeroAndNotTheLast) {
    FileChunkInfo info;
    info.fileName = "info.json";
    const auto recorder = std::make_shared<RecordingTransport>();
    ASSERT_EQ(mgr->CreateUploader("job1", recorder, 8), 0);

    EXPECT_EQ(mgr->UploadCtrlFileData("job1", "abc", info, context), 0);

    ASSERT_TRUE(recorder->WaitForChunks(1));
    EXPECT_EQ(recorder->Chunks().front().chunkModule, 0U);
    EXPECT_FALSE(recorder->Chunks().front().isLastChunk);
}

TEST_F(UploaderMgrTest, EmptyCtrlFileDataIsRefused) {
    EXPECT_EQ(mgr->UploadCtrlFileData("job1", "", {"f.t", false, 3}, nullptr), -1);

    EXPECT_TRUE(log.Has('I', "UploadCtrlFileData id[job1] uploader start"));
    EXPECT_THAT(log.Texts('E'), ElementsAre("data is empty"));
}

TEST_F(UploaderMgrTest, CtrlFileDataWithoutAContextIsRefused) {
    EXPECT_EQ(mgr->UploadCtrlFileData("job1", "abc", {"f.t", false, 3}, nullptr), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("jobCtx is null"));
}

TEST_F(UploaderMgrTest, CtrlFileDataForAnUnknownIdIsRefused) {
    EXPECT_EQ(mgr->UploadCtrlFileData("x", "abc", {"f.t", false, 3}, context), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("Get id[x] uploader failed"));
    EXPECT_TRUE(log.Has('D', "UploadData id[x] uploader start"));
}

TEST_F(UploaderMgrTest, CtrlFileDataWithoutMemoryIsRefused) {
    const FileChunkInfo info{"f.t", false, 3};
    const std::string data = "abc";
    FailNextNewOfAtLeast(sizeof(ProfileFileChunk));
    RecordedLog::Instance().SetLevel(DLOG_ERROR);

    EXPECT_EQ(mgr->UploadCtrlFileData("x", data, info, context), -1);

    RecordedLog::Instance().SetLevel(DLOG_DEBUG);
    EXPECT_THAT(log.Texts('E'), ElementsAre("make shared failed, message: std::bad_alloc"));
}

TEST_F(UploaderMgrTest, DestructionWithUploadersSleepsTwentyMilliseconds) {
    mgr->AddUploader("job1", MakeUploader(8));
    mm.SkipSleeps();

    mgr.reset();

    EXPECT_THAT(mm.Sleeps(), ElementsAre(20));
    EXPECT_THAT(log.OwnTexts('I'), testing::Contains("Stopping uploader, force_quit:1."));
    EXPECT_EQ(log.OwnTexts('I').front(), "id: job1 Entering AddUploader...");
    EXPECT_EQ(log.OwnTexts('I').at(1), "Begin to destroy UploaderMgr.");
    EXPECT_EQ(log.OwnTexts('I').back(), "End to destroy UploaderMgr.");
}

TEST_F(UploaderMgrTest, DestructionOfAnEmptyTableDoesNotSleep) {
    mgr.reset();

    EXPECT_THAT(mm.Sleeps(), IsEmpty());
    EXPECT_TRUE(log.Has('I', "End to destroy UploaderMgr."));
}

TEST_F(UploaderMgrTest, LastMessageArrivesBehindAllChunksAndClosesTheSession) {
    FakeDriver& driver = FakeDriver::Instance();
    const auto session = driver.NewSession();
    ASSERT_EQ(
        mgr->CreateUploader("job1", std::make_shared<HDCTransport>(session, false, nullptr), 8), 0);
    EXPECT_EQ(mgr->UploadData("job1", MakeChunk("first")), 0);
    EXPECT_EQ(mgr->UploadData("job1", MakeChunk("second")), 0);
    EXPECT_EQ(mgr->UploadData("job1", "finish", 6), 0);

    ASSERT_TRUE(driver.WaitForSent(session, 3));
    mgr->DelUploader("job1");

    EXPECT_THAT(driver.Sent(session),
                ElementsAre(testing::HasSubstr("first"), testing::HasSubstr("second"),
                            testing::HasSubstr("finish")));
    EXPECT_TRUE(driver.IsClosed(session));
}

}  // namespace tiv::test

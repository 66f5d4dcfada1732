// The upload thread: order, back-pressure, draining and stopping.
#include "transport/uploader.h"

#include <thread>

#include "support/failing_new.h"
#include "transport/ending_waits.h"
#include "transport/uploader_fixture.h"

namespace tiv::test {

using analysis::rokt::transport::Uploader;
using testing::ElementsAre;
using testing::IsEmpty;

class UploaderTest : public UploaderFixture {
 protected:
    // Pushes until the queue of `capacity` is full; the next push blocks.
    static void Fill(Uploader& uploader, size_t capacity) {
        for (size_t i = 0; i < capacity; ++i) {
            EXPECT_EQ(uploader.UploadData(MakeChunk("x")), 0);
        }
    }

    bool WaitForBlockedPush(size_t capacity) {
        const std::string number = std::to_string(capacity);
        return log.WaitFor('W', "IsFULL, QueueName: UploaderQueue, QueueCapacity:" + number +
                                    ", QueueSize:" + number);
    }
};

TEST_F(UploaderTest, SendsInTheOrderOfThePushes) {
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->Start(), 0);
    EXPECT_EQ(uploader->UploadData(MakeChunk("a")), 0);
    EXPECT_EQ(uploader->UploadData("b", 1), 0);
    EXPECT_EQ(uploader->UploadData(MakeChunk("c")), 0);

    EXPECT_TRUE(link->WaitForSent(3));
    EXPECT_THAT(link->Sent(), ElementsAre("chunk:a", "raw:b", "chunk:c"));
}

TEST_F(UploaderTest, SaysNoErrorWhenAllGoesThrough) {
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->UploadData(MakeChunk("a")), 0);
    EXPECT_EQ(uploader->UploadData("b", 1), 0);
    EXPECT_EQ(uploader->Start(), 0);

    EXPECT_EQ(uploader->Stop(false), 0);

    EXPECT_THAT(link->Sent(), ElementsAre("chunk:a", "raw:b"));
    EXPECT_THAT(log.Texts('E'), IsEmpty());
}

TEST_F(UploaderTest, WithoutATransportEveryChunkIsLost) {
    Uploader uploader(nullptr);
    EXPECT_EQ(uploader.Init(8), 0);
    EXPECT_EQ(uploader.UploadData(MakeChunk("a")), 0);
    EXPECT_EQ(uploader.UploadData("b", 1), 0);
    EXPECT_EQ(uploader.Start(), 0);

    EXPECT_EQ(uploader.Stop(false), 0);

    EXPECT_EQ(log.Count('E', "Failed to upload data"), 2U);
}

TEST_F(UploaderTest, UninitBeforeInitKeepsTheTransport) {
    Uploader uploader(link);

    uploader.Uninit();

    EXPECT_EQ(uploader.GetTransport(), link);
}

TEST_F(UploaderTest, UploadBeforeInitIsRefused) {
    Uploader uploader(link);

    EXPECT_EQ(uploader.UploadData(MakeChunk("a")), -1);
    EXPECT_EQ(uploader.UploadData("a", 1), -1);

    EXPECT_EQ(log.Count('E', "Uploader was not inited."), 2U);
}

TEST_F(UploaderTest, NullDataIsRefused) {
    const auto uploader = MakeUploader(8);

    EXPECT_EQ(uploader->UploadData(nullptr, 1), -1);
    EXPECT_EQ(uploader->UploadData(std::shared_ptr<ProfileFileChunk>()), -1);

    EXPECT_EQ(log.Count('E', "[Uploader::UploadData]data is nullptr."), 2U);
}

TEST_F(UploaderTest, RawUploadOfNoBytesSendsNone) {
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->UploadData("a", 0), 0);
    EXPECT_EQ(uploader->UploadData("a", -1), 0);

    EXPECT_EQ(uploader->Start(), 0);

    EXPECT_TRUE(link->WaitForSent(2));
    EXPECT_THAT(link->Sent(), ElementsAre("raw:", "raw:"));
}

TEST_F(UploaderTest, RawUploadKeepsACopyOfItsBytes) {
    const auto uploader = MakeUploader(8);
    std::string bytes("a\0b", 3);
    EXPECT_EQ(uploader->UploadData(bytes.data(), 3), 0);
    bytes = "xyz";

    EXPECT_EQ(uploader->Start(), 0);
    EXPECT_TRUE(link->WaitForSent(1));
    EXPECT_THAT(link->Sent(), ElementsAre(std::string("raw:a\0b", 7)));
}

TEST_F(UploaderTest, ModuleSixTakesTheRawPathWhateverItsFileName) {
    const auto chunk = MakeChunk("abcdef");
    chunk->chunkModule = 6;
    chunk->chunkSize = 4;
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->UploadData(chunk), 0);

    EXPECT_EQ(uploader->Start(), 0);
    EXPECT_TRUE(link->WaitForSent(1));
    EXPECT_THAT(link->Sent(), ElementsAre("raw:abcd"));
}

TEST_F(UploaderTest, RawSendOfAnotherLengthIsReportedAndTheLoopGoesOn) {
    link->lengthError = -1;
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->UploadData("abc", 3), 0);
    EXPECT_EQ(uploader->UploadData(MakeChunk("next")), 0);

    EXPECT_EQ(uploader->Start(), 0);
    EXPECT_TRUE(link->WaitForSent(2));
    EXPECT_TRUE(log.Has('E', "Failed to upload data, data_len=3 bytes, sent len=2 bytes"));
    EXPECT_THAT(link->Sent(), ElementsAre("raw:abc", "chunk:next"));
}

TEST_F(UploaderTest, FailedChunkIsReportedAndNotRetried) {
    link->chunkResult = -1;
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->UploadData(MakeChunk("a")), 0);
    EXPECT_EQ(uploader->UploadData("b", 1), 0);

    EXPECT_EQ(uploader->Start(), 0);
    EXPECT_TRUE(link->WaitForSent(2));
    EXPECT_EQ(log.Count('E', "Failed to upload data"), 1U);
    EXPECT_THAT(link->Sent(), ElementsAre("chunk:a", "raw:b"));
}

TEST_F(UploaderTest, ThrowingTransportLosesTheChunkAndNotTheThread) {
    link->throwingText = "chunk:a";
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->UploadData(MakeChunk("a")), 0);
    EXPECT_EQ(uploader->UploadData(MakeChunk("b")), 0);

    EXPECT_EQ(uploader->Start(), 0);
    EXPECT_TRUE(link->WaitForSent(1));
    EXPECT_TRUE(log.Has('E', "Failed to upload data, exception: broken"));
    EXPECT_THAT(link->Sent(), ElementsAre("chunk:b"));
}

TEST_F(UploaderTest, ChunkDiesWhenItIsSent) {
    const auto uploader = MakeUploader(8);
    auto chunk = MakeChunk("a");
    const std::weak_ptr<ProfileFileChunk> watched = chunk;
    EXPECT_EQ(uploader->UploadData(chunk), 0);
    chunk.reset();
    EXPECT_FALSE(watched.expired());

    EXPECT_EQ(uploader->Start(), 0);
    EXPECT_EQ(uploader->Stop(false), 0);

    EXPECT_TRUE(watched.expired());
}

TEST_F(UploaderTest, Push513OfAQueueOf512BlocksUntilAStop) {
    const auto uploader = MakeUploader(512);
    Fill(*uploader, 512);
    int result = 0;
    std::thread producer([&] { result = uploader->UploadData(MakeChunk("y")); });
    EXPECT_TRUE(WaitForBlockedPush(512));

    EXPECT_EQ(uploader->Stop(false), 0);
    producer.join();

    EXPECT_EQ(result, -1);
    EXPECT_TRUE(log.Has('E', "[Uploader::UploadData]Push data failed."));
}

TEST_F(UploaderTest, Push514BlocksWhileTheThreadHoldsOneChunk) {
    const auto uploader = MakeHeldUploader(512);
    Fill(*uploader, 512);
    int result = -1;
    std::thread producer([&] { result = uploader->UploadData(MakeChunk("last")); });
    EXPECT_TRUE(WaitForBlockedPush(512));

    link->Open();
    producer.join();

    EXPECT_EQ(result, 0);
    EXPECT_TRUE(link->WaitForSent(514));
    EXPECT_EQ(link->Sent().back(), "chunk:last");
}

TEST_F(UploaderTest, StopWithoutForceSendsWhatIsQueued) {
    const auto uploader = MakeHeldUploader(8);
    Fill(*uploader, 5);
    // The thread comes out of its send when it is told to quit already.
    mm.mmJoinTask = [this, join = mm.mmJoinTask](mmThread* thread) {
        link->Open();
        return join(thread);
    };

    EXPECT_EQ(uploader->Stop(false), 0);

    EXPECT_EQ(link->Sent().size(), 6U);
    EXPECT_TRUE(log.Has('I', "Stopping uploader, force_quit:0."));
    EXPECT_TRUE(log.Has('I', "queue size remaining: 0, force_quit:0"));
}

TEST_F(UploaderTest, ForcedStopSendsTheChunkInHandOnly) {
    const auto uploader = MakeHeldUploader(8);
    Fill(*uploader, 2);
    std::thread stopper([&] { EXPECT_EQ(uploader->Stop(true), 0); });
    EXPECT_TRUE(log.WaitFor('I', "Stopping uploader, force_quit:1."));

    link->Open();
    stopper.join();

    EXPECT_THAT(link->Sent(), ElementsAre("chunk:held"));
    EXPECT_TRUE(log.Has('I', "queue size remaining: 2, force_quit:1"));
    EXPECT_EQ(link->Closes(), 0);
}

TEST_F(UploaderTest, ForcedStopClosesASessionWhoseSendOutlivesTheLimit) {
    const auto uploader = MakeHeldUploader(8);
    uploader->SetThreadName("held");
    uploader->SetStopLimit(std::chrono::milliseconds(0));

    EXPECT_EQ(uploader->Stop(true), 0);

    EXPECT_EQ(link->Closes(), 1);
    EXPECT_THAT(link->Sent(), IsEmpty());
    EXPECT_TRUE(log.Has('E', "Uploader is blocked in a send, close its session, thread=held"));
}

TEST_F(UploaderTest, SendHasSixtySecondsToEndInAForcedStop) {
    const auto uploader = MakeHeldUploader(8);
    const EndingWaits waits;
    const auto before = std::chrono::steady_clock::now();

    EXPECT_EQ(uploader->Stop(true), 0);

    EXPECT_EQ(std::chrono::steady_clock::now() - before, std::chrono::seconds(60));
    EXPECT_EQ(link->Closes(), 1);
}

TEST_F(UploaderTest, SecondStopDoesNothing) {
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->Stop(false), 0);
    log.Clear();

    EXPECT_EQ(uploader->Stop(true), 0);

    EXPECT_FALSE(log.Contains('I', "Stopping uploader"));
}

TEST_F(UploaderTest, StopBeforeInitDoesNothing) {
    Uploader uploader(link);

    EXPECT_EQ(uploader.Stop(true), 0);

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(UploaderTest, FailedJoinIsReportedAndStillZero) {
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->Start(), 0);
    const auto join = mm.mmJoinTask;
    mm.mmJoinTask = [join](mmThread* thread) {
        EXPECT_EQ(join(thread), 0);
        return -1;
    };

    EXPECT_EQ(uploader->Stop(false), 0);

    EXPECT_TRUE(log.Has('E', "Failed to stop uploader"));
}

TEST_F(UploaderTest, ThreadWithoutInitReportsAndEnds) {
    Uploader uploader(link);

    EXPECT_EQ(uploader.Start(), 0);

    EXPECT_TRUE(log.WaitFor('E', "Uploader was not inited."));
}

TEST_F(UploaderTest, FlushSleepsUntilTheQueueIsEmpty) {
    const auto uploader = MakeUploader(8);
    Fill(*uploader, 2);
    int sleeps = 0;
    mm.mmSleep = [&](uint32_t) {
        if (++sleeps == 3) {
            EXPECT_EQ(uploader->Start(), 0);
            EXPECT_TRUE(link->WaitForSent(2));
        }
        return 0;
    };

    uploader->Flush();

    EXPECT_THAT(mm.Sleeps(), ElementsAre(100, 100, 100));
}

TEST_F(UploaderTest, FlushDoesNotWaitForTheChunkInHand) {
    const auto uploader = MakeHeldUploader(8);

    uploader->Flush();

    EXPECT_THAT(link->Sent(), IsEmpty());
    EXPECT_THAT(mm.Sleeps(), IsEmpty());
    link->Open();
}

TEST_F(UploaderTest, FlushReturnsWhenTheThreadHasEnded) {
    const auto uploader = MakeHeldUploader(8);
    Fill(*uploader, 2);
    uploader->SetStopLimit(std::chrono::milliseconds(0));
    EXPECT_EQ(uploader->Stop(true), 0);

    uploader->Flush();

    EXPECT_TRUE(log.Has('I', "queue size remaining: 2, force_quit:1"));
    EXPECT_THAT(mm.Sleeps(), IsEmpty());
}

TEST_F(UploaderTest, FlushBeforeInitReturns) {
    Uploader uploader(link);

    uploader.Flush();

    EXPECT_THAT(mm.Sleeps(), IsEmpty());
}

TEST_F(UploaderTest, UninitReleasesTheTransportAndRefusesData) {
    const auto uploader = MakeUploader(8);
    EXPECT_EQ(uploader->GetTransport(), link);

    uploader->Uninit();

    EXPECT_EQ(uploader->GetTransport(), nullptr);
    EXPECT_EQ(link.use_count(), 1);
    EXPECT_EQ(uploader->UploadData(MakeChunk("a")), -1);
    EXPECT_TRUE(log.Has('E', "Uploader was not inited."));
}

TEST_F(UploaderTest, DestructionDropsWhatIsQueued) {
    auto uploader = MakeUploader(8);
    auto chunk = MakeChunk("a");
    const std::weak_ptr<ProfileFileChunk> watched = chunk;
    EXPECT_EQ(uploader->UploadData(chunk), 0);
    chunk.reset();

    uploader.reset();

    EXPECT_TRUE(watched.expired());
    EXPECT_THAT(link->Sent(), IsEmpty());
    EXPECT_TRUE(log.Has('I', "Stopping uploader, force_quit:1."));
}

TEST_F(UploaderTest, WantOfMemoryFailsInit) {
    Uploader uploader(link);
    int result = 0;
    {
        FailingNew failing;
        result = uploader.Init(8);
    }

    EXPECT_EQ(result, -1);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(uploader.UploadData(MakeChunk("a")), -1);
}

TEST_F(UploaderTest, WantOfMemoryFailsAPush) {
    const auto uploader = MakeUploader(512);
    const auto chunk = MakeChunk("a");
    int result = 0;

    // The queue asks for memory at one of many pushes.
    for (int pushes = 0; result == 0 && pushes < 512; ++pushes) {
        const FailingNew failing;
        result = uploader->UploadData(chunk);
    }

    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.Texts('E'), ElementsAre("make shared failed, message: std::bad_alloc",
                                            "[Uploader::UploadData]Push data failed."));
}

TEST_F(UploaderTest, WantOfMemoryFailsARawUpload) {
    const auto uploader = MakeUploader(8);
    int result = 0;
    {
        FailingNew failing;
        result = uploader->UploadData("abc", 3);
    }

    EXPECT_EQ(result, -1);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
}

}  // namespace tiv::test

// Tests of the driver flush of a channel reader.
#include <gtest/gtest.h>

#include <thread>

#include "transport/channel_fixture.h"

namespace tiv::test {
namespace {

using Sizes = std::vector<uint64_t>;

class ChannelFlush : public ChannelFixture {
 protected:
    ChannelFlush() : ChannelFixture(false) {}

    // The driver promises this many bytes.
    static void PromiseBytes(uint32_t bytes) {
        Driver().halProfDataFlush = [bytes](uint32_t, uint32_t, uint32_t* size) {
            *size = bytes;
            return 0;
        };
    }

    // A flush on a thread of its own, which has asked the driver when this returns.
    std::thread StartFlush(ChannelReader& reader, const std::string& promise) {
        std::thread flusher([&reader] { reader.FlushDrvBuff(); });
        EXPECT_TRUE(Log().WaitFor('I', "Flush deviceId:2, channelId:44, flushSize:" + promise));
        return flusher;
    }
};

TEST_F(ChannelFlush, OtherChannelsDoNothing) {
    auto reader = MakeReader(7);

    reader->FlushDrvBuff();

    EXPECT_EQ(Driver().calls.Count("halProfDataFlush"), 0U);
}

TEST_F(ChannelFlush, Channels44And45AskTheDriver) {
    PromiseBytes(0);

    MakeReader(44)->FlushDrvBuff();
    MakeReader(45)->FlushDrvBuff();

    EXPECT_EQ(Driver().calls.Calls("halProfDataFlush").at(0).Value("channel"), 44);
    EXPECT_EQ(Driver().calls.Calls("halProfDataFlush").at(1).Value("channel"), 45);
    EXPECT_EQ(Driver().calls.Calls("halProfDataFlush").at(1).Value("device"), 2);
}

TEST_F(ChannelFlush, DriverThatTellsNoNumberHoldsNothingBack) {
    Driver().halProfDataFlush = [](uint32_t, uint32_t, uint32_t*) { return 0; };

    MakeReader(44)->FlushDrvBuff();

    EXPECT_TRUE(Log().Has('I', "No drv data need flush."));
}

TEST_F(ChannelFlush, NothingHeldBackReturnsAtOnce) {
    PromiseBytes(0);
    auto reader = MakeReader(44);
    ScriptReads({5});
    reader->Execute();

    reader->FlushDrvBuff();

    EXPECT_EQ(Uploads(), 0U);
    EXPECT_TRUE(Log().Has('I', "Flush deviceId:2, channelId:44, flushSize:0"));
    EXPECT_TRUE(Log().Has('I', "No drv data need flush."));
}

TEST_F(ChannelFlush, RefusedFlushReturnsAtOnce) {
    Driver().calls.Return("halProfDataFlush", 3);
    auto reader = MakeReader(44);
    ScriptReads({5});
    reader->Execute();

    reader->FlushDrvBuff();

    EXPECT_EQ(Uploads(), 0U);
    EXPECT_TRUE(Log().Has('E', "DrvProfFlush failed, deviceId:2, channelId:44, ret:-1"));
}

TEST_F(ChannelFlush, PromisedBytesAreReadAndUploaded) {
    OpenChannel(44);
    Driver().HoldBackChannelData(DEVICE, 44, "held back");
    auto reader = MakeReader(44);
    std::thread flusher = StartFlush(*reader, "9");

    reader->Execute();
    flusher.join();

    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{9}));
}

TEST_F(ChannelFlush, EmptyReadEndsTheWait) {
    PromiseBytes(100);
    auto reader = MakeReader(44);
    ScriptReads({10, 0});
    std::thread flusher = StartFlush(*reader, "100");

    reader->Execute();
    flusher.join();

    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{10}));
}

TEST_F(ChannelFlush, FailedReadEndsTheWait) {
    PromiseBytes(100);
    auto reader = MakeReader(44);
    ScriptReads({-9});
    std::thread flusher = StartFlush(*reader, "100");

    reader->Execute();
    flusher.join();

    EXPECT_TRUE(Log().Has('E', "read device 2, channel:44, ret=-1"));
}

TEST_F(ChannelFlush, AllPromisedBytesEndTheWaitWithoutAnEmptyRead) {
    PromiseBytes(33554432);
    auto reader = MakeReader(44);
    ScriptReads(std::vector<int32_t>(8, 4194304));
    std::thread flusher = StartFlush(*reader, "33554432");

    reader->Execute();
    flusher.join();

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 8U);
    EXPECT_TRUE(link->WaitForChunks(8));
}

TEST_F(ChannelFlush, SumBeyond32BitsEndsTheWait) {
    Log().SetLevel(DLOG_INFO);
    PromiseBytes(4294967295);
    auto reader = MakeReader(44);
    ScriptReads(std::vector<int32_t>(1024, 4194304));
    std::thread flusher = StartFlush(*reader, "-1");

    for (int i = 0; i < 128; ++i) {
        reader->Execute();
    }
    flusher.join();

    EXPECT_TRUE(link->WaitForChunks(1024));
}

TEST_F(ChannelFlush, StopEndsTheWait) {
    PromiseBytes(100);
    auto reader = MakeReader(44);
    std::thread flusher = StartFlush(*reader, "100");

    reader->SetChannelStopped();
    flusher.join();

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 0U);
}

TEST_F(ChannelFlush, UninitEndsTheWait) {
    PromiseBytes(100);
    auto reader = MakeReader(44);
    std::thread flusher = StartFlush(*reader, "100");

    reader->Uninit();
    flusher.join();

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 0U);
}

TEST_F(ChannelFlush, StoppedReaderDoesNotWait) {
    PromiseBytes(100);
    auto reader = MakeReader(44);
    reader->SetChannelStopped();

    reader->FlushDrvBuff();

    EXPECT_TRUE(Log().Has('I', "Flush deviceId:2, channelId:44, flushSize:100"));
}

TEST_F(ChannelFlush, ReadsOfOtherTimesAreNotCounted) {
    OpenChannel(44);
    auto reader = MakeReader(44);
    Driver().PushChannelData(DEVICE, 44, "before");
    reader->Execute();
    Driver().HoldBackChannelData(DEVICE, 44, "behind");
    std::thread flusher = StartFlush(*reader, "6");

    reader->Execute();
    flusher.join();

    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{12}));
}

}  // namespace
}  // namespace tiv::test

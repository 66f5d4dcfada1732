// Tests of the channel reader.
#include "transport/prof_channel.h"

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

#include "support/failing_new.h"
#include "transport/channel_fixture.h"
#include "transport/prof_channel_buffers.h"

namespace tiv::test {
namespace {

using analysis::rokt::transport::CHANNEL_BUFFER_SIZE;
using analysis::rokt::transport::ProfChannelBuffers;
using analysis::rokt::transport::UploaderMgr;
using Sizes = std::vector<uint64_t>;
using Rooms = std::vector<int64_t>;

class ChannelReaderTest : public ChannelFixture {};

// --- creation ---

TEST_F(ChannelReaderTest, SaysItsFileAndBufferSize) {
    MakeReader();

    EXPECT_TRUE(Log().Has('I', "Channel reader data/llc.data, buffer size : 4194304"));
}

TEST_F(ChannelReaderTest, FirstReadOffersTheWholeBuffer) {
    MakeReader()->Execute();

    EXPECT_EQ(RoomsOffered(), (Rooms{4194304}));
}

TEST_F(ChannelReaderTest, BufferSizeComesFromTheReportConfiguration) {
    ConfigureChannel8(R"("channel_buffer_size":2097152)");

    MakeReader()->Execute();

    EXPECT_EQ(RoomsOffered(), (Rooms{2097152}));
    EXPECT_TRUE(Log().Has('I', "Channel reader data/llc.data, buffer size : 2097152"));
}

TEST_F(ChannelReaderTest, BufferSizeBeyondItsRangeLeavesTheWholeBuffer) {
    ConfigureChannel8(R"("channel_buffer_size":4194305)");

    MakeReader()->Execute();

    EXPECT_EQ(RoomsOffered(), (Rooms{4194304}));
}

TEST_F(ChannelReaderTest, BindIdIsChannelPlusDevice) {
    EXPECT_EQ(MakeReader(44, 5)->GetBindId(), 49);
}

// --- what one Execute does ---

TEST_F(ChannelReaderTest, BeforeInitReadsNothing) {
    ChannelReader reader(2, 8, "data/llc.data", jobCtx);

    EXPECT_EQ(reader.Execute(), 0);

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 0U);
}

TEST_F(ChannelReaderTest, AfterStopReadsNothingAndLowersTheCountByOne) {
    auto reader = MakeReader();
    reader->SetSchedulingStatus(true);
    reader->SetSchedulingStatus(true);
    reader->SetSchedulingStatus(true);
    reader->SetChannelStopped();
    EXPECT_TRUE(reader->IsBeyondScheduleLimit());

    EXPECT_EQ(reader->Execute(), 0);

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 0U);
    EXPECT_FALSE(reader->IsBeyondScheduleLimit());
    reader->SetSchedulingStatus(true);
    EXPECT_TRUE(reader->IsBeyondScheduleLimit());
}

TEST_F(ChannelReaderTest, AfterUninitAQueuedTaskReadsNothing) {
    auto reader = MakeReader();
    reader->Uninit();

    EXPECT_EQ(reader->Execute(), 0);

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 0U);
}

TEST_F(ChannelReaderTest, ReadsAsItsDeviceAndChannelUntilEmpty) {
    ScriptReads({10, 20});

    MakeReader()->Execute();

    const auto calls = Driver().calls.Calls("prof_channel_read");
    EXPECT_EQ(calls.back().Value("device"), 2);
    EXPECT_EQ(calls.back().Value("channel"), 8);
    EXPECT_EQ(RoomsOffered(), (Rooms{4194304, 4194294, 4194274}));
}

TEST_F(ChannelReaderTest, SaysBufferAndEachRead) {
    ScriptReads({10});

    MakeReader()->Execute();

    EXPECT_TRUE(Log().Has('I', "ChannelReader::Execute buffer size 4194304."));
    EXPECT_TRUE(Log().Has('D',
                          "deviceId:2, channelId:8 fileName:data/llc.data, bufSize:4194304, "
                          "currLen:10, spaceSize:4194304"));
    EXPECT_TRUE(Log().Has('D',
                          "deviceId:2, channelId:8 fileName:data/llc.data, bufSize:4194304, "
                          "currLen:0, spaceSize:4194294"));
}

TEST_F(ChannelReaderTest, BufferKeepsItsCapacityOverAnUpload) {
    auto reader = MakeReader();
    ScriptReads({4194304, 5});
    reader->Execute();
    reader->Execute();

    EXPECT_EQ(Log().Count('I', "ChannelReader::Execute buffer size 4194304."), 2U);
}

TEST_F(ChannelReaderTest, FailedReadEndsTheRoundOnly) {
    auto reader = MakeReader();
    ScriptReads({10, -9, 7});

    EXPECT_EQ(reader->Execute(), 0);
    EXPECT_TRUE(Log().Has('E', "read device 2, channel:8, ret=-1"));

    reader->Execute();
    EXPECT_EQ(RoomsOffered(), (Rooms{4194304, 4194294, 4194294, 4194287}));
}

TEST_F(ChannelReaderTest, EmptyReadIsNoError) {
    MakeReader()->Execute();

    EXPECT_EQ(Log().CountOf('E'), 0U);
}

TEST_F(ChannelReaderTest, LengthBeyondTheRoomIsAFailedRead) {
    auto reader = MakeReader();
    ScriptReads({4194305});

    reader->Execute();
    reader->Uninit();

    EXPECT_TRUE(Log().Has('E', "read device 2, channel:8, ret=-1"));
    EXPECT_TRUE(Log().Contains('V', "total_size_channel: 0 bytes"));
}

TEST_F(ChannelReaderTest, YieldsAfter33554432Bytes) {
    ScriptReads(std::vector<int32_t>(9, 4194304));

    MakeReader()->Execute();

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 8U);
}

TEST_F(ChannelReaderTest, GoesOnAfter33554431Bytes) {
    ScriptReads({4194304, 4194304, 4194304, 4194304, 4194304, 4194304, 4194304, 4194303});

    MakeReader()->Execute();

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 9U);
}

// --- when the buffer leaves ---

TEST_F(ChannelReaderTest, FullBufferLeavesBeforeTheNextReadAndNotAtTheYield) {
    auto reader = MakeReader();
    ScriptReads(std::vector<int32_t>(8, 4194304));

    reader->Execute();
    EXPECT_EQ(Uploads(), 7U);

    reader->Uninit();
    EXPECT_TRUE(link->WaitForChunks(8));
    EXPECT_EQ(link->Sizes(), Sizes(8, 4194304));
}

TEST_F(ChannelReaderTest, EmptyChannelKeeps1048575BytesUntilUninit) {
    auto reader = MakeReader();
    ScriptReads({1048575});
    reader->Execute();

    reader->Execute();
    EXPECT_EQ(RoomsOffered(), (Rooms{4194304, 3145729, 3145729}));
    EXPECT_EQ(Uploads(), 0U);

    reader->Uninit();
    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{1048575}));
}

TEST_F(ChannelReaderTest, EmptyChannelSends1048576Bytes) {
    auto reader = MakeReader();
    ScriptReads({1048576});

    reader->Execute();

    EXPECT_EQ(Uploads(), 1U);
    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{1048576}));
}

TEST_F(ChannelReaderTest, FailedReadSends1048576Bytes) {
    auto reader = MakeReader();
    ScriptReads({1048576, -9});

    reader->Execute();

    EXPECT_EQ(Uploads(), 1U);
    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{1048576}));
}

TEST_F(ChannelReaderTest, BufferOf1MiBIsSentAfterAReadWithoutRoom) {
    ConfigureChannel8(R"("channel_buffer_size":1048576)");
    ScriptReads({1048576, 0});

    MakeReader()->Execute();

    EXPECT_EQ(RoomsOffered(), (Rooms{1048576, 0}));
    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{1048576}));
}

TEST_F(ChannelReaderTest, UninitWithAnEmptyBufferSendsNothing) {
    MakeReader()->Uninit();

    EXPECT_EQ(Uploads(), 0U);
}

// --- what a chunk holds ---

TEST_F(ChannelReaderTest, ChunkNamesFileJobAndDeviceOfTheContext) {
    OpenChannel();
    Driver().PushChannelData(DEVICE, CHANNEL, "abc");
    auto reader = MakeReader();
    reader->Execute();
    reader->Uninit();

    ASSERT_TRUE(link->WaitForChunks(1));
    const auto chunk = link->Chunks().front();
    EXPECT_FALSE(chunk.isLastChunk);
    EXPECT_EQ(chunk.chunkModule, 3U);
    EXPECT_EQ(chunk.chunkSize, 3U);
    EXPECT_EQ(chunk.offset, -1);
    EXPECT_EQ(chunk.chunk, "abc");
    EXPECT_EQ(chunk.fileName, "data/llc.data.null");
    EXPECT_EQ(chunk.extraInfo, "job1.3");
}

TEST_F(ChannelReaderTest, PartFilledBufferKeepsItsLengthForItsNextUse) {
    OpenChannel();
    Driver().PushChannelData(DEVICE, CHANNEL, "abc");
    auto reader = MakeReader();
    reader->Execute();
    reader->Uninit();
    ASSERT_EQ(UploaderMgr::Instance().Uninit(), 0);  // the chunk is sent and gone

    ASSERT_EQ(ProfChannelBuffers::Instance().IdleCount(), 1U);
    EXPECT_EQ(ProfChannelBuffers::Instance().MakeChunk()->chunk.size(), CHANNEL_BUFFER_SIZE);
}

TEST_F(ChannelReaderTest, ReadsAreAppended) {
    OpenChannel();
    auto reader = MakeReader();
    Driver().PushChannelData(DEVICE, CHANNEL, "abc");
    reader->Execute();
    Driver().PushChannelData(DEVICE, CHANNEL, "defg");
    reader->Execute();

    reader->FlushBuffToUpload();

    ASSERT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->AllData(), "abcdefg");
}

TEST_F(ChannelReaderTest, ShortChunkAfterAFullOneHoldsNothingOfIt) {
    OpenChannel();
    auto reader = MakeReader();
    Driver().PushChannelData(DEVICE, CHANNEL, std::string(4 * MIB, 'x'));
    reader->Execute();
    reader->FlushBuffToUpload();
    ASSERT_TRUE(link->WaitForChunks(1));
    Driver().PushChannelData(DEVICE, CHANNEL, "end");
    reader->Execute();

    reader->FlushBuffToUpload();

    ASSERT_TRUE(link->WaitForChunks(2));
    EXPECT_EQ(link->Chunks().at(1).chunk, "end");
    EXPECT_EQ(link->Chunks().at(1).chunkSize, 3U);
}

std::string Numbers(size_t bytes) {
    std::vector<uint64_t> numbers(bytes / sizeof(uint64_t));
    std::iota(numbers.begin(), numbers.end(), 0U);
    return std::string(reinterpret_cast<const char*>(numbers.data()), bytes);
}

TEST_F(ChannelReaderTest, ManyBuffersKeepEveryByteInOrder) {
    OpenChannel();
    auto reader = MakeReader();
    const std::string data = Numbers(21 * MIB + 8);
    Driver().PushChannelData(DEVICE, CHANNEL, data);

    reader->Execute();
    reader->Uninit();

    ASSERT_TRUE(link->WaitForChunks(6));
    EXPECT_TRUE(link->AllData() == data);
}

// --- failures ---

TEST_F(ChannelReaderTest, ChunkWithoutUploaderIsLost) {
    jobCtx->job_id = "gone";
    auto reader = MakeReader();
    ScriptReads({1048576, 0, 5});
    reader->Execute();
    EXPECT_TRUE(Log().Has('E', "Upload data failed, jobId: gone"));

    reader->Execute();

    EXPECT_EQ(RoomsOffered().at(2), 4194304);
}

TEST_F(ChannelReaderTest, DataStaysWhenAChunkCannotBeMade) {
    auto reader = MakeReader();
    ScriptReads({6});
    reader->Execute();
    {
        FailingNew failing;
        reader->FlushBuffToUpload();
    }
    EXPECT_TRUE(Log().Has('E', "make shared failed, message: std::bad_alloc"));

    reader->FlushBuffToUpload();

    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (Sizes{6}));
}

TEST_F(ChannelReaderTest, ExceptionEndsTheRoundAndLowersTheCount) {
    Driver().prof_channel_read = [](uint32_t, uint32_t, char*, uint32_t) -> int32_t {
        throw std::runtime_error("out of order");
    };
    auto reader = MakeReader();
    reader->SetSchedulingStatus(true);
    reader->SetSchedulingStatus(true);
    reader->SetSchedulingStatus(true);

    EXPECT_EQ(reader->Execute(), 0);

    EXPECT_FALSE(reader->IsBeyondScheduleLimit());
    EXPECT_TRUE(Log().Has('E', "Reading failed, device=2 channel=8: out of order"));
}

TEST_F(ChannelReaderTest, InitFailsWhenMemoryIsShort) {
    ChannelReader reader(2, 8, "data/llc.data", jobCtx);
    FailingNew failing;

    EXPECT_EQ(reader.Init(), -1);

    EXPECT_TRUE(Log().Has('E', "make shared failed, message: std::bad_alloc"));
}

TEST_F(ChannelReaderTest, UninitWithoutInitStillSpeaks) {
    ChannelReader reader(2, 8, "data/llc.data", jobCtx);

    reader.Uninit();

    EXPECT_TRUE(Log().Contains('V', "device id 2, channel: 8, total_size_channel: 0 bytes"));
}

// --- scheduling ---

TEST_F(ChannelReaderTest, ThreeDispatchesAreBeyondTheLimit) {
    auto reader = MakeReader();
    reader->SetSchedulingStatus(true);
    reader->SetSchedulingStatus(true);
    EXPECT_FALSE(reader->IsBeyondScheduleLimit());

    reader->SetSchedulingStatus(true);

    EXPECT_TRUE(reader->IsBeyondScheduleLimit());
}

TEST_F(ChannelReaderTest, CountDoesNotGoBelowZero) {
    auto reader = MakeReader();
    reader->SetSchedulingStatus(false);
    reader->SetSchedulingStatus(true);
    reader->SetSchedulingStatus(true);

    reader->SetSchedulingStatus(true);

    EXPECT_TRUE(reader->IsBeyondScheduleLimit());
}

}  // namespace
}  // namespace tiv::test

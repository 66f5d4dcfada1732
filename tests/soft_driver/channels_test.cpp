// Starting, polling, reading, flushing and stopping channels.
#include <sys/resource.h>

#include "channel_bench.h"

namespace tiv::test {
namespace {

constexpr const char* COUNTER =
    R"({"channels": [{"id": 8, "name": "numbers", "source": "counter"}]})";
constexpr const char* SHORT_COUNTER =
    R"({"channels": [{"id": 8, "source": "counter", "limit_bytes": 8}]})";

class Channels : public ChannelBench {
 protected:
    char buffer_[4096] = {};
    ProfPollPair pairs_[6] = {};
};

TEST_F(Channels, ListFollowsTheFileByteForByte) {
    Configure(R"({"chip_id": 7, "channels": [{"id": 8, "name": "llc", "type": 3}, {"id": 160}]})");
    ProfDrvChannelList list;
    memset(&list, 0xAA, sizeof(list));

    ASSERT_EQ(0, prof_drv_get_channels(0, &list));

    ProfDrvChannelList expected{};
    expected.chipType = 7;
    expected.channelNum = 2;
    expected.channels[0] = {"llc", 3, 8};
    expected.channels[1] = {"channel_160", 1, 160};
    EXPECT_EQ(0, memcmp(&expected, &list, sizeof(list)));
}

TEST_F(Channels, EmptyListIsAnswered) {
    Configure(R"({"channels": []})");
    ProfDrvChannelList list{};
    list.channelNum = 4;

    EXPECT_EQ(0, prof_drv_get_channels(0, &list));

    EXPECT_EQ(0u, list.channelNum);
}

TEST_F(Channels, DevicesHaveChannelsOfTheirOwn) {
    Configure(R"({"channels": [{"id": 8}], "devices": [{}, {"channels": [{"id": 5}]}]})");
    ProfDrvChannelList list{};

    EXPECT_EQ(0, prof_drv_get_channels(0, &list));
    EXPECT_EQ(8u, list.channels[0].channelId);
    EXPECT_EQ(0, prof_drv_get_channels(1, &list));
    EXPECT_EQ(5u, list.channels[0].channelId);
    EXPECT_EQ(-1, prof_drv_get_channels(2, &list));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_EQ(-1, prof_drv_get_channels(0, nullptr));
}

TEST_F(Channels, PollAnswersStoppedAtOnceWhileNoneIsOpen) {
    EXPECT_EQ(-4, prof_channel_poll(pairs_, 6, 3600));
}

TEST_F(Channels, PollOfASilentChannelTimesOut) {
    Configure(R"({"channels": [{"id": 8}]})");
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(0, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(0, prof_channel_read(0, 8, buffer_, sizeof(buffer_)));
    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Channels, PollSleepsInTheKernelForItsWholeTime) {
    Configure(R"({"channels": [{"id": 8}]})");
    ASSERT_EQ(0, Start(0, 8));
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_THREAD, &before);

    EXPECT_EQ(0, prof_channel_poll(pairs_, 6, 1));

    getrusage(RUSAGE_THREAD, &after);
    EXPECT_GE(5, after.ru_nvcsw - before.ru_nvcsw);
    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Channels, StopOfTheLastChannelWakesThePollWithStopped) {
    Configure(R"({"channels": [{"id": 8}]})");
    ASSERT_EQ(0, Start(0, 8));
    Worker poller([this] { EXPECT_EQ(-4, prof_channel_poll(pairs_, 6, 3600)); });
    poller.WaitUntilBlocked();

    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Channels, ChannelIsReportedOnceBetweenTwoReads) {
    Configure(COUNTER);
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(1, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(0u, pairs_[0].devId);
    EXPECT_EQ(8u, pairs_[0].channelId);
    EXPECT_EQ(0, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(16, prof_channel_read(0, 8, buffer_, 16));
    EXPECT_EQ(16, prof_channel_read(0, 8, buffer_, 16));
    EXPECT_EQ(1, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(0, prof_channel_poll(pairs_, 6, 0));
}

TEST_F(Channels, ReadOfLength0ReportsTheChannelAgain) {
    Configure(COUNTER);
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(1, prof_channel_poll(pairs_, 6, 0));

    EXPECT_EQ(0, prof_channel_read(0, 8, nullptr, 0));

    EXPECT_EQ(1, prof_channel_poll(pairs_, 6, 0));
}

TEST_F(Channels, DrainedChannelIsNotReported) {
    Configure(SHORT_COUNTER);
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(static_cast<int32_t>(HEADER_BYTES + 8),
              prof_channel_read(0, 8, buffer_, sizeof(buffer_)));

    EXPECT_EQ(0, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(0, prof_channel_read(0, 8, buffer_, sizeof(buffer_)));
    EXPECT_EQ(0, prof_channel_poll(pairs_, 6, 0));
}

TEST_F(Channels, BusyChannelsTakeTurns) {
    Configure(R"({"devices": 3, "channels": [{"id": 8, "source": "counter"}]})");
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(0, Start(1, 8));
    ASSERT_EQ(0, Start(2, 8));

    std::vector<uint32_t> order;
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(1, prof_channel_poll(pairs_, 1, 0));
        order.push_back(pairs_[0].devId);
        ASSERT_EQ(8, prof_channel_read(pairs_[0].devId, 8, buffer_, 8));
    }

    EXPECT_EQ((std::vector<uint32_t>{0, 1, 2, 0, 1, 2}), order);
}

TEST_F(Channels, PollGivesAtMostTheNumberAsked) {
    Configure(R"({"devices": 3, "channels": [{"id": 8, "source": "counter"}]})");
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(0, Start(1, 8));
    ASSERT_EQ(0, Start(2, 8));

    EXPECT_EQ(2, prof_channel_poll(pairs_, 2, 0));
    EXPECT_EQ(1, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(2u, pairs_[0].devId);
}

TEST_F(Channels, StoppedChannelIsNotReported) {
    Configure(R"({"devices": 2, "channels": [{"id": 8, "source": "counter"}]})");
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(0, Start(1, 8));

    ASSERT_EQ(0, prof_stop(0, 8));

    EXPECT_EQ(1, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(1u, pairs_[0].devId);
}

TEST_F(Channels, StoppedChannelAnswersStoppedEverywhere) {
    Configure(COUNTER);
    uint32_t size = 7;
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(0, prof_stop(0, 8));

    EXPECT_EQ(-4, prof_channel_read(0, 8, buffer_, 8));
    EXPECT_EQ(-4, prof_stop(0, 8));
    EXPECT_EQ(-4, halProfDataFlush(0, 8, &size));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(-4, prof_channel_poll(pairs_, 6, 3600));
}

TEST_F(Channels, UnknownChannelsAreErrors) {
    Configure(COUNTER);
    uint32_t size = 0;

    EXPECT_EQ(-1, Start(0, 9));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_EQ(-1, Start(1, 8));
    EXPECT_EQ(-1, prof_channel_read(0, 9, buffer_, 8));
    EXPECT_EQ(-1, prof_stop(0, 9));
    EXPECT_EQ(-1, halProfDataFlush(1, 8, &size));
}

TEST_F(Channels, BadArgumentsAreRefused) {
    Configure(COUNTER);
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(-1, prof_drv_start(0, 8, nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, prof_channel_read(0, 8, nullptr, 8));
    EXPECT_EQ(-1, prof_channel_poll(nullptr, 6, 0));
    EXPECT_EQ(-1, prof_channel_poll(pairs_, 0, 0));
    EXPECT_EQ(-1, prof_channel_poll(pairs_, 6, -1));
    EXPECT_EQ(-1, halProfDataFlush(0, 8, nullptr));
}

TEST_F(Channels, RunningChannelCannotBeStartedAgain) {
    Configure(COUNTER);
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(-1, Start(0, 8));

    EXPECT_EQ(EALREADY, errno);
    EXPECT_EQ(16, prof_channel_read(0, 8, buffer_, 16));
}

// Starts the channel with a record of so many words; the driver's result.
int32_t StartWith(uint32_t channel, std::vector<uint32_t> words, uint32_t extraBytes = 0) {
    words.resize(words.size() + 1);
    ProfStartPara para{};
    para.userData = words.data();
    para.userDataSize = static_cast<uint32_t>((words.size() - 1) * 4) + extraBytes;
    const int32_t result = prof_drv_start(0, channel, &para);
    if (result == 0) {
        EXPECT_EQ(0, prof_stop(0, channel));
    }
    return result;
}

TEST_F(Channels, StartRecordMustHaveTheSizeOfItsChannel) {
    Configure(R"({"channels": [{"id": 8}, {"id": 7}, {"id": 130}, {"id": 50}]})");

    EXPECT_EQ(0, StartWith(8, {100, 1}));
    EXPECT_EQ(-1, StartWith(8, {100}));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, StartWith(8, {100, 1, 0}));
    EXPECT_EQ(0, StartWith(7, {1, 0xFFFFFFFF, 2, 0, 1}));
    EXPECT_EQ(-1, StartWith(7, {1, 0xFFFFFFFF, 3, 0, 1}));
    EXPECT_EQ(-1, StartWith(7, {1, 0xFFFFFFFF}));
    EXPECT_EQ(0, StartWith(130, {1, 0, 1, 0}));
    EXPECT_EQ(-1, StartWith(130, {1, 0, 1}));
    EXPECT_EQ(0, StartWith(50, {1, 2, 3, 4, 5}));
    EXPECT_EQ(-1, StartWith(50, {1}, 3));
}

TEST_F(Channels, StartRecordHas4096BytesAtMost) {
    Configure(R"({"channels": [{"id": 50}]})");

    EXPECT_EQ(0, StartWith(50, std::vector<uint32_t>(1024)));
    EXPECT_EQ(-1, StartWith(50, std::vector<uint32_t>(1025)));

    EXPECT_EQ(EINVAL, errno);
}

TEST_F(Channels, StartRecordWithoutMemoryIsRefused) {
    Configure(COUNTER);
    ProfStartPara para{};
    para.userDataSize = 8;

    EXPECT_EQ(-1, prof_drv_start(0, 8, &para));

    EXPECT_EQ(EINVAL, errno);
}

TEST_F(Channels, HeaderTellsWhatFollows) {
    Configure(COUNTER);
    ASSERT_EQ(0, Start(0, 8));

    const std::string header = ReadBytes(0, 8, HEADER_BYTES);

    EXPECT_EQ("TIVC", header.substr(0, 4));
    EXPECT_EQ(1u, Word(header, 4));
    EXPECT_EQ(HEADER_BYTES, Word(header, 8));
    EXPECT_EQ(2u, Word(header, 12));
    EXPECT_EQ(0u, Word(header, 16));
    EXPECT_EQ(0u, Word(header, 20));
    EXPECT_EQ(8u, Word(header, 24));
    EXPECT_EQ(8u, Word(header, 28));
    EXPECT_EQ(std::string("numbers") + std::string(25, '\0'), header.substr(32, 32));
    EXPECT_EQ(std::string(8, '\0'), header.substr(64, 8));
}

TEST_F(Channels, EveryStartCountsFrom0) {
    Configure(COUNTER);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(0, Start(0, 8));

        EXPECT_EQ(Numbers(100), ReadBytes(0, 8, HEADER_BYTES + 800).substr(HEADER_BYTES));

        ASSERT_EQ(0, prof_stop(0, 8));
    }
}

TEST_F(Channels, NumbersMayBeCutAnywhere) {
    Configure(COUNTER);
    ASSERT_EQ(0, Start(0, 8));

    const std::string bytes = ReadBytes(0, 8, HEADER_BYTES + 8000, 7);

    EXPECT_EQ(Numbers(1000), bytes.substr(HEADER_BYTES));
}

TEST_F(Channels, StopTellsWhatBecameOfTheBytes) {
    Configure(COUNTER);
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(1000u, ReadBytes(0, 8, 1000).size());
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(0, prof_stop(0, 8));

    EXPECT_EQ(
        "tiv_driver: info: channel stopped: device=0 channel=8 source=counter header=72 "
        "delivered=1000 lost=0 dropped=0\n",
        ::testing::internal::GetCapturedStderr());
}

TEST_F(Channels, UnreadBytesAreLostAndCounted) {
    Configure(R"({"channels": [{"id": 8, "source": "replay", "file": ")" +
              directory_.Write("data", std::string(500, 'd')) + R"("}]})");
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(172u, ReadBytes(0, 8, 172).size());
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(0, prof_stop(0, 8));

    EXPECT_EQ(
        "tiv_driver: info: channel stopped: device=0 channel=8 source=replay header=72 "
        "delivered=172 lost=400 dropped=0\n",
        ::testing::internal::GetCapturedStderr());
}

TEST_F(Channels, HeldBackBytesBecomeReadableInLots) {
    Configure(R"({"channels": [{"id": 8, "source": "replay", "hold_back_bytes": 1000, "file": ")" +
              directory_.Write("data", std::string(928, 'd')) + R"("}]})");
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(1000u, ReadBytes(0, 8, 1000).size());
}

TEST_F(Channels, FlushMakesHeldBackBytesReadableAndReportsTheChannel) {
    Configure(R"({"channels": [{"id": 8, "source": "counter", "hold_back_bytes": 1000,
                  "bytes_per_second": 1, "limit_bytes": 8}]})");
    uint32_t size = 0;
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(0, prof_channel_read(0, 8, buffer_, sizeof(buffer_)));
    ASSERT_EQ(0, prof_channel_poll(pairs_, 6, 0));

    EXPECT_EQ(0, halProfDataFlush(0, 8, &size));

    EXPECT_EQ(HEADER_BYTES, size);
    EXPECT_EQ(1, prof_channel_poll(pairs_, 6, 0));
    EXPECT_EQ(static_cast<int32_t>(HEADER_BYTES),
              prof_channel_read(0, 8, buffer_, sizeof(buffer_)));
}

TEST_F(Channels, StopsAndReadsMeetSafely) {
    Configure(COUNTER);
    std::atomic<bool> done{false};
    Worker reader([&] {
        std::string room(65536, '\0');
        while (!done) {
            const int32_t count = prof_channel_read(0, 8, room.data(), 65536);
            EXPECT_TRUE(count == -4 || count == 0 || count == 65536) << count;
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(0, Start(0, 8));
        EXPECT_EQ(0, prof_stop(0, 8));
    }
    done = true;
}

TEST_F(Channels, StartsAndStopsOfTwoThreadsMeetSafely) {
    Configure(R"({"channels": [{"id": 8, "source": "counter", "bytes_per_second": 1000000}]})");
    std::atomic<bool> done{false};
    Worker stopper([&] {
        while (!done) {
            (void)prof_stop(0, 8);
        }
    });
    int started = 0;
    for (int round = 0; round < 300; ++round) {
        started += Start(0, 8) == 0 ? 1 : 0;
    }
    done = true;
    stopper.Join();

    EXPECT_LT(0, started);
    (void)prof_stop(0, 8);
    EXPECT_EQ(-4, prof_channel_poll(pairs_, 6, 0));
}

}  // namespace
}  // namespace tiv::test

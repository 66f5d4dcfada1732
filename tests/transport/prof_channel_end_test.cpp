// Tests of what the channel reader says and sends at its end.
#include <gtest/gtest.h>

#include "support/failing_new.h"
#include "transport/channel_fixture.h"
#include "transport/prof_channel.h"

namespace tiv::test {
namespace {

using Texts = std::vector<std::string>;

class ChannelReaderEnd : public ChannelFixture {};

TEST_F(ChannelReaderEnd, UninitOutlivesAnUploadThatThrows) {
    const std::string text = "Upload of the rest failed, channel=8: std::bad_alloc";
    jobCtx->job_id = std::string(64, 'j');

    // The last allocation is the copy of the job's name for the upload.
    for (size_t passed = 32; passed > 0 && !Log().Has('E', text); --passed) {
        auto reader = MakeReader();
        ScriptReads({6});
        reader->Execute();
        FailingNew failing(passed);
        reader->Uninit();
    }

    EXPECT_TRUE(Log().Has('E', text));
}

TEST_F(ChannelReaderEnd, ReaderWithOnlyOneCounterEndsLikeAnyOther) {
    ChannelReader reader(2, 8, "data/llc.data", jobCtx);
    int ret = -1;

    for (size_t passed = 0; ret != 0; ++passed) {
        ASSERT_LT(passed, 32U);
        {
            const FailingNew failing(passed);
            ret = reader.Init();
        }
        reader.Uninit();
    }

    const size_t failures = Log().Count('E', "make shared failed, message: std::bad_alloc");
    EXPECT_LT(3U, failures);  // the first counter takes a block, its name and a copy of that
    EXPECT_EQ(failures, Log().CountOf('V') - 1);
}

TEST_F(ChannelReaderEnd, UninitSaysTotalsFileAndJob) {
    auto reader = MakeReader();
    ScriptReads({10, 20, 0});
    reader->Execute();
    ScriptReads({5});
    reader->Execute();

    reader->Uninit();

    EXPECT_EQ(Log().Texts('V'),
              (Texts{"device id 2, channel: 8, total_size_channel: 35 bytes, file:data/llc.data, "
                     "job_id:job1,drvChannelReadCont:5"}));
}

TEST_F(ChannelReaderEnd, RoundsOfAStoppedReaderCountToo) {
    auto reader = MakeReader();
    reader->SetChannelStopped();
    reader->Execute();
    reader->Execute();

    reader->Uninit();

    EXPECT_TRUE(Log().Contains('V', "total_size_channel: 0 bytes"));
    EXPECT_TRUE(Log().Contains('V', "drvChannelReadCont:2"));
}

TEST_F(ChannelReaderEnd, InitStartsRoundsAndSpeedOver) {
    Mm().UseFakeClock();
    Driver().prof_channel_read = [&](uint32_t, uint32_t, char*, uint32_t) {
        Mm().AdvanceClock(2000000);
        return Driver().calls.Count("prof_channel_read") % 2 == 0 ? 0 : 1000;
    };
    auto reader = MakeReader();
    reader->Execute();
    EXPECT_EQ(reader->Init(), 0);
    reader->Execute();

    reader->Uninit();

    EXPECT_TRUE(Log().Contains('V', "total_size_channel: 2000 bytes"));
    EXPECT_TRUE(Log().Contains('V', "drvChannelReadCont:2"));
    EXPECT_TRUE(Log().Contains('I', "moduleName: ChannelReaderSpeed[job1 : 2 : 8], "));
    EXPECT_FALSE(Log().Contains('I', "moduleName: ChannelReaderSpeedAll[job1 : 2 : 8], "));
}

TEST_F(ChannelReaderEnd, SpeedOverAllReadsCountsTheTimeBetweenThem) {
    Mm().UseFakeClock();
    Driver().prof_channel_read = [&](uint32_t, uint32_t, char*, uint32_t) {
        Mm().AdvanceClock(2000000);
        return Driver().calls.Count("prof_channel_read") % 2 == 0 ? 0 : 1000;
    };
    auto reader = MakeReader();
    reader->Execute();
    Mm().AdvanceClock(3000000);
    reader->Execute();

    reader->Uninit();

    EXPECT_TRUE(Log().Contains('I',
                               "moduleName: ChannelReaderSpeedAll[job1 : 2 : 8], overhead Min: "
                               "7000000 ns, overhead Max: 7000000 ns, overhead Avg: 7000000 ns, "
                               "overhead Sum_: 7000000 ns, package nums: 1, package size: 1000, "));
}

TEST_F(ChannelReaderEnd, UninitSpeaksBeforeTheRestLeaves) {
    Mm().UseFakeClock();
    Driver().prof_channel_read = [&](uint32_t, uint32_t, char*, uint32_t) {
        Mm().AdvanceClock(2000000);
        return Driver().calls.Count("prof_channel_read") == 1 ? 1000 : 0;
    };
    auto reader = MakeReader();
    reader->Execute();
    Log().Clear();

    reader->Uninit();

    const auto lines = Log().OwnLines();
    EXPECT_EQ(lines.at(0).level, 'V');
    EXPECT_EQ(lines.at(1).text.rfind("moduleName: ChannelReaderSpeed[job1 : 2 : 8], ", 0), 0U);
    EXPECT_EQ(lines.at(3).text, "UploadData id[job1] uploader start");
}

TEST_F(ChannelReaderEnd, UninitSaysTheSpeedOfEachReadAndOverAllReads) {
    Mm().UseFakeClock();
    int reads = 0;
    Driver().prof_channel_read = [&](uint32_t, uint32_t, char*, uint32_t) {
        Mm().AdvanceClock(2000000);
        return ++reads <= 2 ? 1000 : 0;
    };
    auto reader = MakeReader();
    reader->Execute();

    reader->Uninit();

    EXPECT_TRUE(Log().Has('I',
                          "moduleName: ChannelReaderSpeed[job1 : 2 : 8], overhead Min: 2000000 ns, "
                          "overhead Max: 2000000 ns, overhead Avg: 2000000 ns, overhead Sum_: "
                          "4000000 ns, package nums: 2, package size: 2000, throughput: 500.0 "
                          "B/ms"));
    EXPECT_TRUE(
        Log().Contains('I', "moduleName: ChannelReaderSpeedAll[job1 : 2 : 8], overhead Min: "));
    EXPECT_TRUE(Log().Contains('I', "package nums: 1, package size: 1000,"));
}

}  // namespace
}  // namespace tiv::test

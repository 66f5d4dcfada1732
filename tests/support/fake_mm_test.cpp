// Tests of the double of the OS abstraction and of the recording log.
#include "support/fake_mm.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include "platform/log.h"
#include "support/recorded_log.h"

namespace {

using tiv::test::FakeMm;
using tiv::test::RecordedLog;

TEST(FakeMm, ForwardsToThePlatform) {
    uint64_t size = 7;

    EXPECT_EQ(0, mmIsDir("/"));
    EXPECT_EQ(0, mmGetFileSize("/proc/stat", &size));

    EXPECT_EQ(0U, size);
    EXPECT_EQ("/", FakeMm::Instance().calls.Calls("mmIsDir")[0].Text("path"));
}

TEST(FakeMm, FailsWithAnErrorNumber) {
    FakeMm::Instance().calls.Fail("mmSemWait", -1, EINVAL);
    mmSem sem;
    ASSERT_EQ(0, mmSemInit(&sem, 1));

    EXPECT_EQ(-1, mmSemWait(&sem));
    EXPECT_EQ(EINVAL, mmGetErrorCode());
    EXPECT_EQ(0, mmSemWait(&sem));
}

TEST(FakeMm, ItsClockMovesWithSleepsOnly) {
    FakeMm::Instance().Reset();
    FakeMm::Instance().UseFakeClock(5000000000);

    EXPECT_EQ(0, mmSleep(1500));

    EXPECT_EQ(6, mmGetTickCount().tv_sec);
    EXPECT_EQ(500000000, mmGetTickCount().tv_nsec);
    EXPECT_EQ(std::vector<uint32_t>{1500}, FakeMm::Instance().Sleeps());
    FakeMm::Instance().Reset();
}

TEST(FakeMm, GivesTheLocalTimeThatWasSet) {
    FakeMm::Instance().SetLocalTime({2001, 2, 3, 4, 5, 6, 7});
    mmSystemTime time = {};

    EXPECT_EQ(0, mmGetLocalTime(&time));

    EXPECT_EQ(2001, time.wYear);
    EXPECT_EQ(7, time.wMilliseconds);
    FakeMm::Instance().Reset();
}

void* StackSize(void* size) {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, static_cast<size_t*>(size));
    pthread_attr_destroy(&attributes);
    return nullptr;
}

TEST(FakeMm, CanGiveEveryThreadTheSmallestStack) {
    FakeMm::Instance().UseSmallStacks();
    size_t size = 0;
    const mmUserBlock block = {StackSize, &size};
    const mmThreadAttr attr = {};
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    // A sanitizer adds room of its own.
    EXPECT_GE(size, 131072U);
    EXPECT_LT(size, 8 * 131072U);
    FakeMm::Instance().Reset();
}

TEST(RecordedLog, PartsThePrefixFromTheText) {
    RecordedLog& log = RecordedLog::Instance();
    log.Clear();

    TIV_LOGE("value %d", 5);
    const int line = __LINE__ - 1;

    ASSERT_EQ(1U, log.Lines().size());
    EXPECT_EQ('E', log.Lines()[0].level);
    EXPECT_EQ("value 5", log.Lines()[0].text);
    EXPECT_EQ("fake_mm_test.cpp", log.Lines()[0].file);
    EXPECT_EQ(line, log.Lines()[0].line);
    EXPECT_EQ(31, log.Lines()[0].moduleId);
}

TEST(RecordedLog, KeepsLevelsApart) {
    RecordedLog& log = RecordedLog::Instance();
    log.Clear();
    TIV_LOGW("w");
    TIV_LOGI("i");
    TIV_LOGD("d");
    TIV_EVENT("v");

    EXPECT_TRUE(log.Has('W', "w"));
    EXPECT_TRUE(log.Has('I', "i"));
    EXPECT_TRUE(log.Has('D', "d"));
    EXPECT_TRUE(log.Has('V', "v"));
    EXPECT_FALSE(log.Has('E', "w"));
}

TEST(RecordedLog, TakesOnlyEnabledLevels) {
    RecordedLog& log = RecordedLog::Instance();
    log.Clear();
    log.SetLevel(DLOG_ERROR);

    TIV_LOGW("w");

    EXPECT_TRUE(log.Lines().empty());
    log.SetLevel(DLOG_DEBUG);
}

}  // namespace

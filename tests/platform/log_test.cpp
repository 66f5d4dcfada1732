// Tests of the log of plain Linux, through the functions and through the macros.
#include "platform/log.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/mm_api.h"
#include "platform/resource_manager.h"
#include "platform/system_calls.h"

namespace {

// Standard error is a socket of packets while a test runs: each packet is one write.
class LinuxLog : public testing::Test {
 protected:
    LinuxLog() : saved_(dup(STDERR_FILENO)) {
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_));
        dup2(ends_[1], STDERR_FILENO);
        unsetenv("JOURNAL_STREAM");
        UseLevel("warning");
    }
    ~LinuxLog() override {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
        close(ends_[0]);
        close(ends_[1]);
    }

    void UseLevel(const char* level) {
        setenv("TIV_LOG_LEVEL", level, 1);
        EXPECT_EQ(0, dlog_init());
    }

    // Everything written since the last call, one element per write.
    std::vector<std::string> Writes() {
        std::vector<std::string> writes;
        std::string packet(2 * PIPE_BUF, '\0');
        ssize_t length = 0;
        while ((length = recv(ends_[0], packet.data(), packet.size(), MSG_DONTWAIT)) > 0) {
            writes.push_back(packet.substr(0, static_cast<size_t>(length)));
        }
        return writes;
    }

    // The single line written, from its label on: without the time.
    std::string Line() {
        const std::vector<std::string> writes = Writes();
        EXPECT_EQ(1U, writes.size());
        return writes.empty() ? "" : writes[0].substr(std::min<size_t>(24, writes[0].size()));
    }

    void LetTheJournalOwnTheStream() {
        struct stat status = {};
        fstat(STDERR_FILENO, &status);
        const std::string stream =
            std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
        setenv("JOURNAL_STREAM", stream.c_str(), 1);
        dlog_init();
    }

 private:
    int saved_;
    int ends_[2] = {-1, -1};
};

TEST_F(LinuxLog, WritesOneLineInOneWrite) {
    DlogErrorInner(31, "first %d\n", 1);
    DlogErrorInner(31, "second %s\n", "2");

    const auto writes = Writes();

    ASSERT_EQ(2U, writes.size());
    EXPECT_EQ("ERROR first 1\n", writes[0].substr(24));
    EXPECT_EQ("ERROR second 2\n", writes[1].substr(24));
}

TEST_F(LinuxLog, StartsWithTheLocalTime) {
    DlogErrorInner(31, "text\n");

    const auto writes = Writes();

    ASSERT_EQ(1U, writes.size());
    EXPECT_THAT(writes[0], testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:"
                                                 "[0-9]{2}\\.[0-9]{3} ERROR text\n"));
}

TEST_F(LinuxLog, CutsTheTimeToWholeMilliseconds) {
    const tiv::test::FixedClock clock = {CLOCK_REALTIME, {1000000000, 999999999}, 0};
    setenv("TZ", "UTC", 1);
    tzset();
    tiv::test::fixedClock = &clock;
    DlogErrorInner(31, "text\n");
    tiv::test::fixedClock = nullptr;

    const auto writes = Writes();

    ASSERT_EQ(1U, writes.size());
    EXPECT_EQ("2001-09-09 01:46:40.999 ERROR text\n", writes[0]);
}

TEST_F(LinuxLog, ReadsItsLevelOnce) {
    UseLevel("debug");
    setenv("TIV_LOG_LEVEL", "error", 1);

    DlogDebugInner(31, "text\n");

    EXPECT_EQ("DEBUG text\n", Line());
}

TEST_F(LinuxLog, EndsAMessageWithoutANewlineWithOne) {
    DlogErrorInner(31, "text");

    EXPECT_EQ("ERROR text\n", Line());
}

TEST_F(LinuxLog, WritesWarningAndAboveByDefault) {
    unsetenv("TIV_LOG_LEVEL");
    dlog_init();

    EXPECT_EQ(0, CheckLogLevel(31, DLOG_DEBUG));
    EXPECT_EQ(0, CheckLogLevel(31, DLOG_INFO));
    EXPECT_EQ(1, CheckLogLevel(31, DLOG_WARN));
}

TEST_F(LinuxLog, TakesEachLevelFromTheEnvironment) {
    UseLevel("debug");
    EXPECT_EQ(1, CheckLogLevel(31, DLOG_DEBUG));
    UseLevel("info");
    EXPECT_EQ(0, CheckLogLevel(31, DLOG_DEBUG));
    EXPECT_EQ(1, CheckLogLevel(31, DLOG_INFO));
    UseLevel("error");
    EXPECT_EQ(0, CheckLogLevel(31, DLOG_WARN));
}

TEST_F(LinuxLog, WarnsOfAnUnknownLevelAndUsesWarning) {
    UseLevel("loud");

    EXPECT_EQ("WARNING Log level unknown, warning is used: TIV_LOG_LEVEL=loud\n", Line());
    EXPECT_EQ(0, CheckLogLevel(31, DLOG_INFO));
    EXPECT_EQ(1, CheckLogLevel(31, DLOG_WARN));
}

TEST_F(LinuxLog, EmptyLevelIsNone) {
    UseLevel("");

    EXPECT_TRUE(Writes().empty());
    EXPECT_EQ(0, CheckLogLevel(31, DLOG_INFO));
    EXPECT_EQ(1, CheckLogLevel(31, DLOG_WARN));
}

TEST_F(LinuxLog, SignalCostsNoLine) {
    tiv::test::interruptions = 2;

    DlogErrorInner(31, "text");

    EXPECT_EQ(0, tiv::test::interruptions);
    EXPECT_EQ("ERROR text\n", Line());
}

TEST_F(LinuxLog, WritesErrorsAndEventsAtEveryLevel) {
    UseLevel("error");

    DlogErrorInner(31, "e\n");
    DlogEventInner(31, "v\n");

    const auto writes = Writes();
    ASSERT_EQ(2U, writes.size());
    EXPECT_EQ("ERROR e\n", writes[0].substr(24));
    EXPECT_EQ("EVENT v\n", writes[1].substr(24));
}

TEST_F(LinuxLog, WritesNothingBelowItsLevel) {
    UseLevel("error");

    DlogWarnInner(31, "w\n");
    DlogInfoInner(31, "i\n");
    DlogDebugInner(31, "d\n");

    EXPECT_TRUE(Writes().empty());
}

TEST_F(LinuxLog, LabelsEachLevel) {
    UseLevel("debug");

    DlogWarnInner(31, "w\n");
    EXPECT_EQ("WARNING w\n", Line());
    DlogInfoInner(31, "i\n");
    EXPECT_EQ("INFO i\n", Line());
    DlogDebugInner(31, "d\n");
    EXPECT_EQ("DEBUG d\n", Line());
}

TEST_F(LinuxLog, PutsPrioritiesInFrontWhenTheServiceManagerOwnsTheStream) {
    setenv("TIV_LOG_LEVEL", "debug", 1);
    LetTheJournalOwnTheStream();

    DlogErrorInner(31, "e\n");
    DlogWarnInner(31, "w\n");
    DlogEventInner(31, "v\n");
    DlogInfoInner(31, "i\n");
    DlogDebugInner(31, "d\n");

    EXPECT_EQ((std::vector<std::string>{"<3>e\n", "<4>w\n", "<5>v\n", "<6>i\n", "<7>d\n"}),
              Writes());
}

TEST_F(LinuxLog, PutsNoPriorityInFrontOfAnotherStream) {
    setenv("JOURNAL_STREAM", "1:1", 1);
    dlog_init();
    DlogErrorInner(31, "e\n");
    EXPECT_EQ("ERROR e\n", Line());

    setenv("JOURNAL_STREAM", "nonsense", 1);
    dlog_init();
    DlogErrorInner(31, "e\n");
    EXPECT_EQ("ERROR e\n", Line());
}

TEST_F(LinuxLog, CutsALongMessageToOneWriteAndMarksTheCut) {
    DlogErrorInner(31, "%s\n", std::string(1024 * 1024, 'a').c_str());

    const auto writes = Writes();

    ASSERT_EQ(1U, writes.size());
    EXPECT_EQ(static_cast<size_t>(PIPE_BUF), writes[0].size());
    EXPECT_EQ("aaa...\n", writes[0].substr(writes[0].size() - 7));
}

TEST_F(LinuxLog, KeepsAMessageThatJustFits) {
    const std::string text(PIPE_BUF - 24 - 6 - 2, 'a');

    DlogErrorInner(31, "%s\n", text.c_str());

    EXPECT_EQ("ERROR " + text + "\n", Line());
}

TEST_F(LinuxLog, KeepsAPeersControlCharactersOutOfTheStream) {
    DlogErrorInner(31, "a%sb\n", "\n\r\x1b\x7f");

    EXPECT_EQ("ERROR a    b\n", Line());
}

TEST_F(LinuxLog, LeavesTextOfOtherLanguagesAlone) {
    DlogErrorInner(31, "%s\n", "\xc3\xa4");

    EXPECT_EQ("ERROR \xc3\xa4\n", Line());
}

TEST_F(LinuxLog, KeepsTheErrorNumberOfTheThread) {
    errno = EDOM;

    DlogErrorInner(31, "text\n");

    EXPECT_EQ(EDOM, errno);
}

TEST_F(LinuxLog, TakesAttributes) {
    EXPECT_EQ(0, DlogSetAttr({1, 0, 0, {}}));
    EXPECT_EQ(64U, sizeof(DlogAttr));
}

void* LogALot(void*) {
    DlogErrorInner(31, "%s\n", std::string(1024 * 1024, 'a').c_str());
    return nullptr;
}

TEST_F(LinuxLog, WorksOnASmallStack) {
    const mmUserBlock block = {LogALot, nullptr};
    mmThreadAttr attr = {};
    attr.threadStackFlag = 1;
    attr.stackSize = 131072;
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    EXPECT_EQ(1U, Writes().size());
}

TEST_F(LinuxLog, MacrosAddThePrefixAndTheNewline) {
    TIV_LOGE("value %d", 5);
    const int line = __LINE__ - 1;

    EXPECT_EQ("ERROR [log_test.cpp:" + std::to_string(line) +
                  "] >>> (tid:" + std::to_string(gettid()) + ") value 5\n",
              Line());
}

TEST_F(LinuxLog, MacrosReachTheirLevels) {
    UseLevel("debug");
    TIV_LOGW("w");
    EXPECT_EQ(0U, Line().find("WARNING ["));
    TIV_LOGI("i");
    EXPECT_EQ(0U, Line().find("INFO ["));
    TIV_LOGD("d");
    EXPECT_EQ(0U, Line().find("DEBUG ["));
    TIV_EVENT("v");
    EXPECT_EQ(0U, Line().find("EVENT ["));
}

TEST_F(LinuxLog, MacrosOfADisabledLevelLookAtNoArgument) {
    UseLevel("error");
    int looked = 0;

    TIV_LOGW("%d", ++looked);
    TIV_LOGI("%d", ++looked);
    TIV_LOGD("%d", ++looked);

    EXPECT_EQ(0, looked);
    EXPECT_TRUE(Writes().empty());
}

struct LogsAtItsEnd {
    ~LogsAtItsEnd() { TIV_LOGE("from a static destructor"); }
};

void LeaveAStaticThatLogs() {
    static LogsAtItsEnd object;
    exit(0);
}

TEST(LogDuringExit, WritesFromStaticDestructors) {
    EXPECT_EXIT(LeaveAStaticThatLogs(), testing::ExitedWithCode(0), "from a static destructor\n");
}

// Runs before main, hence before anything has called dlog_init.
const int32_t levelBeforeMain = CheckLogLevel(31, DLOG_WARN);

TEST(LogBeforeInit, AnswersAndWrites) {
    EXPECT_TRUE(levelBeforeMain == 0 || levelBeforeMain == 1);
    EXPECT_EXIT(
        {
            DlogErrorInner(31, "before the start\n");
            exit(0);
        },
        testing::ExitedWithCode(0), "ERROR before the start\n");
}

TEST(ResourceManager, IsReadyOnAPlainMachine) { EXPECT_EQ(0, IAMResMgrReady()); }

}  // namespace

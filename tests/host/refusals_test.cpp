// What the host tool does when the system refuses or interrupts a call.
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>

#include "hdc/hdc_transport.h"
#include "host/data_session.h"
#include "host/device_link.h"
#include "host/export/export_result.h"
#include "host/output_file.h"
#include "host/refused_calls.h"
#include "host/result/result_reader.h"
#include "host/result_files.h"
#include "host/result_parse.h"
#include "support/fake_driver.h"
#include "support/temp_dir.h"

namespace tiv::host {
namespace {

using analysis::rokt::transport::HDCTransport;
using test::FakeDriver;
using test::RefusedCall;
using test::TempDir;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr const char* MANIFEST = R"({"state":"complete","complete":true,
    "units":{"pageBytes":4096,"ticksPerSecond":100},
    "devices":[{"device":0,"directory":"device_0","complete":true,"finishArrived":true}]})";

// A result with one reading of the system's CPU.
class ReadingOfAResult : public testing::Test {
 protected:
    ReadingOfAResult() {
        directory_.Write("manifest.json", MANIFEST);
        (void)directory_.MakeDir("device_0/data");
        directory_.Write("device_0/data/SystemCpuUsage.data",
                         test::Record(50, 0, "cpu 1 2 3 4 5 6 7 8\n"));
        std::string error;
        result_ = OpenResult(directory_.Path(), error);
    }
    ReadOutcome Read() { return ResultReader(*result_, log_).Read(); }

    TempDir directory_;
    std::optional<ResultDirectory> result_;
    test::TableLog log_;
};

class Refusals : public testing::Test {
 protected:
    Refusals() : files_(directory_.MakeDir("result")) {}
    bool Put(const std::string& name, const std::string& data) {
        return files_.OnChunk({name, 3, data});
    }

    TempDir directory_;
    ResultFiles files_;
};

constexpr const char* ROOM = "; make room there, or choose another directory with --output";

}  // namespace

TEST_F(Refusals, DirectoryOfAChunkThatCannotBeMadeEndsTheSession) {
    const RefusedCall full("mkdirat", ENOSPC);

    EXPECT_FALSE(Put("data/a", "x"));

    EXPECT_EQ(fmt::format("cannot write {}/data/a: No space left on device{}",
                          directory_.Path("result"), ROOM),
              files_.Error());
    EXPECT_TRUE(fs::is_empty(directory_.Path("result")));
}

TEST_F(Refusals, ChunkWhoseWriteASignalInterruptsIsWhole) {
    const RefusedCall interrupted("write", EINTR, 2);

    EXPECT_TRUE(Put("a", "one"));

    EXPECT_EQ(2, RefusedCall::Count());
    EXPECT_EQ("one", directory_.Read("result/a"));
}

TEST_F(Refusals, CloseThatASignalInterruptsLosesNothing) {
    ASSERT_TRUE(Put("a", "one"));
    const RefusedCall interrupted("close", EINTR);

    EXPECT_TRUE(files_.OnFinish());

    EXPECT_EQ(1, RefusedCall::Count());
    EXPECT_EQ("", files_.Error());
}

TEST(OutputFileRefusals, WriteThatASignalInterruptsIsRepeated) {
    const TempDir directory;
    OutputFile file(directory.Path("x"));
    ASSERT_TRUE(file.Open());
    file.Write("text");
    const RefusedCall interrupted("write", EINTR, 2);

    EXPECT_TRUE(file.Commit()) << file.Error();

    EXPECT_EQ(2, RefusedCall::Count());
    EXPECT_EQ("text", directory.Read("x"));
}

TEST(OutputFileRefusals, LateErrorOfTheDiskAtTheCloseIsTold) {
    const TempDir directory;
    {
        OutputFile file(directory.Path("x"));
        ASSERT_TRUE(file.Open());
        const RefusedCall lost("close", EIO);

        EXPECT_FALSE(file.Commit());

        EXPECT_EQ("cannot write " + directory.Path("x") + ": Input/output error", file.Error());
    }
    EXPECT_TRUE(fs::is_empty(directory.Path()));
}

TEST(OutputFileRefusals, CloseThatASignalInterruptsIsNone) {
    const TempDir directory;
    OutputFile file(directory.Path("x"));
    ASSERT_TRUE(file.Open());
    const RefusedCall interrupted("close", EINTR);

    EXPECT_TRUE(file.Commit()) << file.Error();

    EXPECT_EQ(1, RefusedCall::Count());
    EXPECT_TRUE(fs::exists(directory.Path("x")));
}

TEST(OutputFileRefusals, WhatCannotBeReadBackIsTold) {
    const TempDir directory;
    OutputFile file(directory.Path("x"));
    ASSERT_TRUE(file.Open());
    file.Write("text");
    std::string back;
    const RefusedCall lost("pread", EIO);

    EXPECT_FALSE(file.ReadBack([&](std::string_view bytes) {
        back += bytes;
        return true;
    }));

    EXPECT_EQ("", back);
    EXPECT_EQ("cannot read back " + directory.Path("x") + ": Input/output error", file.Error());
}

TEST(OutputFileRefusals, ReadingBackThatASignalInterruptsIsRepeated) {
    const TempDir directory;
    OutputFile file(directory.Path("x"));
    ASSERT_TRUE(file.Open());
    file.Write("text");
    std::string back;
    const RefusedCall interrupted("pread", EINTR, 2);

    EXPECT_TRUE(file.ReadBack([&](std::string_view bytes) {
        back += bytes;
        return true;
    }));

    EXPECT_EQ(2, RefusedCall::Count());
    EXPECT_EQ("text", back);
}

TEST_F(ReadingOfAResult, ReadThatASignalInterruptsIsRepeated) {
    const RefusedCall interrupted("read", EINTR, 2);

    const ReadOutcome outcome = Read();

    EXPECT_EQ(2, RefusedCall::Count());
    EXPECT_TRUE(outcome.problems.empty());
    EXPECT_EQ("cpu 0 50 -1 1,2,3,4,5,6,7,8 -", log_.lines.front());
}

TEST_F(ReadingOfAResult, FileThatCannotBeReadToItsEndIsAProblem) {
    const RefusedCall lost("read", EIO, 1, 1);

    const ReadOutcome outcome = Read();

    EXPECT_EQ((std::vector<std::string>{
                  "device_0/data/SystemCpuUsage.data cannot be read further: Input/output error"}),
              outcome.problems);
    EXPECT_EQ("cpu 0 50 -1 1,2,3,4,5,6,7,8 -", log_.lines.front()) << "what came before it counts";
}

TEST_F(ReadingOfAResult, TimelineWithoutMemoryToCompressIsNotBegun) {
    const RefusedCall full("deflateInit2_", ENOMEM);
    (void)directory_.MakeDir("out");
    directory_.Write("out/x.new", "somebody else's");

    const ExportReport report =
        ExportResult(directory_.Path(), ExportFormat::PERFETTO, directory_.Path("out/x"));

    EXPECT_EQ("cannot compress: out of memory; choose another place with --output", report.error);
    EXPECT_EQ("somebody else's", directory_.Read("out/x.new"));
    EXPECT_FALSE(fs::exists(directory_.Path("out/x")));
}

TEST_F(ReadingOfAResult, DatabaseWithoutMemoryIsNotBegun) {
    const RefusedCall full("sqlite3_open_v2", ENOMEM);
    const std::string output = directory_.MakeDir("out") + "/x";

    const ExportReport report = ExportResult(directory_.Path(), ExportFormat::SQLITE, output);

    EXPECT_EQ("cannot make the database: out of memory: file " + output +
                  ".new; choose another place with --output",
              report.error);
    EXPECT_TRUE(fs::is_empty(directory_.Path("out")));
}

TEST(DataSessionRefusals, HandshakeThatNobodyAnswersTimesOut) {
    class Nowhere : public ChunkSink {
        bool OnChunk(const ReceivedChunk& /*chunk*/) override { return true; }
        bool OnFinish() override { return true; }
    } sink;
    const HDC_SESSION session = FakeDriver::Instance().NewSession();
    const GiveUp never = [] {
        test::PutClockForward(30s);
        return false;
    };
    DataSession data(2, "job", std::make_shared<HDCTransport>(session, true, nullptr), sink, never);

    const Reply reply = data.Handshake();

    EXPECT_EQ(Reply::Outcome::TIMED_OUT, reply.outcome);
    EXPECT_EQ(
        "device 2: no answer to the data handshake within 30s; look at the daemon's log, or try "
        "again later",
        reply.message);
}

TEST(DeviceLinkRefusals, WithoutAPauseOfTheCallersItSleepsBetweenTwoTries) {
    FakeDriver::Instance().calls.Fail("drvHdcSessionConnect", -1, ECONNREFUSED, 2);
    DeviceLink link(1h);
    std::string error;

    EXPECT_NE(nullptr, link.Connect(0, error)) << error;

    EXPECT_EQ((std::vector<std::chrono::nanoseconds>{50ms, 50ms}), test::Sleeps());
}

}  // namespace tiv::host

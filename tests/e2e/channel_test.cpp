// Driver channels from the driver to the host: every number in its place, whatever happens on the
// way.
#include <gtest/gtest.h>

#include <unistd.h>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>
#include <utility>

#include "e2e/channel_job.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"
#include "message/job_context.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;
using host::DataSession;
using nlohmann::json;

constexpr uint64_t MIB = 1024 * 1024;
constexpr uint64_t CHUNK = 4 * MIB;
constexpr uint64_t QUEUED_CHUNKS = 512;
constexpr uint64_t HEADER = 72;
// Ring of the channel, buffers of the reader and of the link, and the rest of the process.
constexpr uint64_t BESIDE_THE_QUEUE = 96 * MIB;
// A stall that is one before the queue is full, and a source that gives more than that.
constexpr uint64_t STALL = 64 * CHUNK;
constexpr char MORE_THAN_A_STALL[] = R"(,"limit_bytes":500000000)";
// The queue fills up before the driver gives the session up, however slow the machine is.
constexpr char PATIENT_DRIVER[] = R"(,"stall_limit_ms":600000)";
constexpr int EXIT_INCOMPLETE = 4;

// The sanitizers of this build. The thread sanitizer is clang's.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool ADDRESS_SANITIZER = true;
#else
constexpr bool ADDRESS_SANITIZER = false;
#endif
#if defined(__has_feature)
constexpr bool THREAD_SANITIZER = __has_feature(thread_sanitizer);
#else
constexpr bool THREAD_SANITIZER = false;
#endif
#define SKIP_WITH_A_SANITIZER()                \
    if (ADDRESS_SANITIZER || THREAD_SANITIZER) \
    GTEST_SKIP() << "memory is not the daemon's own with a sanitizer"
#define SKIP_WITH_THE_THREAD_SANITIZER() \
    if (THREAD_SANITIZER) GTEST_SKIP() << "the thread sanitizer uses CPU time of its own"

class ChannelPath : public DaemonTest {
 protected:
    // The host saw what the driver handed out, start by start.
    void ExpectAllArrived(ChannelJob& job) {
        EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
        EXPECT_EQ(job.sink.Error(), "");
        EXPECT_EQ(job.sink.Runs(), DeliveredBytes(daemon_->Errors(), job.deviceId));
    }

    // What the starts that have ended handed out together.
    uint64_t AllDelivered(const ChannelJob& job) const {
        const std::vector<uint64_t> runs = DeliveredBytes(daemon_->Errors(), job.deviceId);
        return std::accumulate(runs.begin(), runs.end(), uint64_t{0});
    }

    // Field `name` of the daemon's status, in bytes.
    [[nodiscard]] uint64_t StatusBytes(const std::string& name) const {
        std::istringstream words(
            FileContent("/proc/" + std::to_string(daemon_->Pid()) + "/status"));
        for (std::string word; words >> word;) {
            if (word == name + ":") {
                uint64_t kib = 0;
                words >> kib;
                return kib * 1024;
            }
        }
        return 0;
    }

    // CPU time of the daemon so far, user's and system's.
    [[nodiscard]] std::chrono::milliseconds CpuTime() const {
        const std::string stat = FileContent("/proc/" + std::to_string(daemon_->Pid()) + "/stat");
        std::istringstream words(stat.substr(stat.rfind(')') + 1));
        std::string skipped;
        for (int field = 3; field < 14; ++field) {
            words >> skipped;
        }
        int64_t user = 0;
        int64_t system = 0;
        words >> user >> system;
        return std::chrono::milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
    }

    // The files that tivctl left for a device.
    [[nodiscard]] static fs::path DeviceDirectory(const std::string& output, int device) {
        for (const auto& entry : fs::directory_iterator(output)) {
            return entry.path() / ("device_" + std::to_string(device));
        }
        return {};
    }

    // Checks the file of a device's channel; its bytes start by start.
    static std::vector<uint64_t> CheckFile(const std::string& output, int device) {
        test::CounterCheck check;
        check.Feed(FileContent(DeviceDirectory(output, device) / "data/llc.data"));
        EXPECT_EQ(check.Error(), "");
        EXPECT_TRUE(check.EndsWhole());
        std::vector<uint64_t> bytes;
        for (const auto& run : check.Runs()) {
            bytes.push_back(run.Bytes());
        }
        return bytes;
    }
};

class ChannelSegments : public ChannelPath, public testing::WithParamInterface<uint32_t> {};

class ChannelStall : public ChannelPath {
 protected:
    // A job whose host reads nothing, when so much waits in the daemon: what the host's side of the
    // link takes has long been full. By default every queue on the way is.
    std::unique_ptr<ChannelJob> StalledJob(uint64_t waiting = QUEUED_CHUNKS * CHUNK) {
        auto job = std::make_unique<ChannelJob>(link_, 0, "stalled");
        job->sink.Hold();
        EXPECT_TRUE(job->Start().Accepted());
        EXPECT_TRUE(Eventually([&] { return StatusBytes("VmRSS") >= waiting; }));
        return job;
    }
};

}  // namespace

TEST_F(ChannelPath, EveryReplayCountsFromZeroBehindAFreshHeader) {
    constexpr uint64_t REPLAYS = 20;
    // A pace that the host keeps up with: the queue's 2 GiB would come first in every replay.
    ConfigureDriver(CounterConfig(1, R"(,"bytes_per_second":20000000,"burst_bytes":400000)"));
    StartDaemon();
    ChannelJob job(link_, 0, "replays");
    ASSERT_TRUE(job.Start().Accepted());

    for (uint64_t replay = 1; replay < REPLAYS; ++replay) {
        ASSERT_TRUE(job.sink.WaitForBytes(AllDelivered(job) + CHUNK));
        ASSERT_TRUE(job.control->StopReplay().Accepted());
        ASSERT_TRUE(job.StartReplay().Accepted());
    }
    ASSERT_TRUE(job.sink.WaitForBytes(AllDelivered(job) + CHUNK));
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.sink.Runs().size(), REPLAYS);
    ExpectAllArrived(job);
}

TEST_F(ChannelPath, JobStopWhileDataFlowsLosesNothingThatWasRead) {
    // At full speed the queue's 2 GiB fill up, which the thread sanitizer takes minutes to drain.
    constexpr uint64_t CHUNKS = THREAD_SANITIZER ? 10 : 100;
    ConfigureDriver(CounterConfig(
        1, THREAD_SANITIZER ? R"(,"bytes_per_second":50000000,"burst_bytes":400000)" : ""));
    StartDaemon();
    ChannelJob job(link_, 0, "flowing");
    ASSERT_TRUE(job.Start().Accepted());
    ASSERT_TRUE(job.sink.WaitForBytes(CHUNKS * CHUNK));

    ASSERT_TRUE(job.StopJob().Accepted());

    EXPECT_EQ(job.sink.Runs().size(), 1u);
    ExpectAllArrived(job);
}

TEST_F(ChannelPath, SourceAtARateFillsItsRingAndLosesOnlyWhatIsUnreadAtTheStop) {
    ConfigureDriver(CounterConfig(1, R"(,"bytes_per_second":400000000,"burst_bytes":800000)"));
    StartDaemon();
    ChannelJob job(link_, 0, "rate");
    ASSERT_TRUE(job.Start().Accepted());
    ASSERT_TRUE(job.sink.WaitForBytes(20 * CHUNK));

    ASSERT_TRUE(job.Stop().Accepted());

    ExpectAllArrived(job);
}

TEST_F(ChannelPath, PartFilledBufferArrivesAtTheStop) {
    ConfigureDriver(CounterConfig(1, R"(,"limit_bytes":600000)"));
    StartDaemon(1, {{"TIV_LOG_LEVEL", "debug"}});
    ChannelJob job(link_, 0, "part");
    ASSERT_TRUE(job.Start().Accepted());
    ASSERT_TRUE(daemon_->WaitForError("currLen:600072"));
    ASSERT_EQ(job.sink.Bytes(), 0u);

    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.sink.Runs(), std::vector<uint64_t>{HEADER + 600000});
    EXPECT_EQ(job.sink.Chunks(), 1u);
    ExpectAllArrived(job);
}

TEST_F(ChannelPath, ChunkNamesItsFileAndCarriesItsTagInTheContext) {
    ConfigureDriver(CounterConfig(1, R"(,"limit_bytes":9000000)"));
    StartDaemon();
    RawSession control(SocketPath(0));
    RawSession data(SocketPath(0));
    const auto accepts = [](RawSession& session, const google::protobuf::Message& message) {
        return session.Send(message) && session.ReceiveAnswer().status == ACCEPTED;
    };
    auto replay = ReplayStart("job");
    replay.add_llc_events("read");
    ASSERT_TRUE(accepts(control, ControlHandshake("job")));
    ASSERT_TRUE(accepts(data, DataHandshake("job")));
    ASSERT_TRUE(
        accepts(control, JobStart("job", SampleConfig("job", {{"zelnar_llc_profiling", "on"}}))));
    ASSERT_TRUE(accepts(control, replay));

    const auto chunk = std::dynamic_pointer_cast<proto::FileChunkReq>(data.ReceiveMessage());
    analysis::rokt::message::JobContext context;
    ASSERT_TRUE(chunk != nullptr && context.FromString(chunk->hdr().job_ctx()));
    EXPECT_EQ(chunk->filename(), "data/llc.data");
    EXPECT_EQ(context.tag, "null");
    EXPECT_EQ(context.job_id, "job");
    EXPECT_EQ(context.dev_id, "0");
}

TEST_F(ChannelPath, PartBehindFullBuffersArrivesAtTheStopToo) {
    ConfigureDriver(CounterConfig(1, R"(,"limit_bytes":9000000)"));
    StartDaemon(1, {{"TIV_LOG_LEVEL", "debug"}});
    ChannelJob job(link_, 0, "parts");
    ASSERT_TRUE(job.Start().Accepted());
    ASSERT_TRUE(daemon_->WaitForError("currLen:" + std::to_string(HEADER + 9000000 - 2 * CHUNK)));
    ASSERT_TRUE(job.sink.WaitForBytes(2 * CHUNK));

    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.sink.Runs(), std::vector<uint64_t>{HEADER + 9000000});
    EXPECT_EQ(job.sink.Chunks(), 3u);
    ExpectAllArrived(job);
}

TEST_P(ChannelSegments, CarryTheSameBytes) {
    // Whole chunks, so that all of it arrives before the stop.
    constexpr uint64_t ALL = 8 * CHUNK;
    ConfigureDriver(CounterConfig(1, ",\"limit_bytes\":" + std::to_string(ALL - HEADER),
                                  ",\"segment_bytes\":" + std::to_string(GetParam())));
    StartDaemon();
    ChannelJob job(link_, 0, "segments");
    ASSERT_TRUE(job.Start().Accepted());
    ASSERT_TRUE(job.sink.WaitForBytes(ALL));

    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.sink.Runs(), std::vector<uint64_t>{ALL});
    ExpectAllArrived(job);
}

INSTANTIATE_TEST_SUITE_P(Smallest, ChannelSegments, testing::Values(1024));
INSTANTIATE_TEST_SUITE_P(Largest, ChannelSegments, testing::Values(524288));

TEST_F(ChannelPath, SixtyFourDevicesFillSixtyFourStreams) {
    constexpr int DEVICES = 64;
    ConfigureDriver(CounterConfig(DEVICES, R"(,"limit_bytes":20000000)"));
    StartDaemon(DEVICES);
    std::vector<std::unique_ptr<ChannelJob>> jobs;
    for (int device = 0; device < DEVICES; ++device) {
        jobs.push_back(
            std::make_unique<ChannelJob>(link_, device, "job-" + std::to_string(device)));
        ASSERT_TRUE(jobs.back()->Start().Accepted()) << device;
    }

    for (const auto& job : jobs) {
        ASSERT_TRUE(job->sink.WaitForBytes(CHUNK));
        ASSERT_TRUE(job->Stop().Accepted()) << job->deviceId;
    }

    for (const auto& job : jobs) {
        EXPECT_EQ(job->sink.Runs().size(), 1u);
        ExpectAllArrived(*job);
    }
}

TEST_F(ChannelPath, TivctlWritesEveryNumberOfFourDevices) {
    ConfigureDriver(CounterConfig(4, R"(,"bytes_per_second":50000000,"burst_bytes":400000)"));
    StartDaemon(4);
    const std::string output = directory_.MakeDir("results");

    const auto tivctl =
        Tivctl({"collect", "--llc", "read", "--device", "0", "--device", "1", "--device", "2",
                "--device", "3", "--duration", "500ms", "--output", output});

    ASSERT_EQ(tivctl->Wait(), 0) << tivctl->Errors();
    for (int device = 0; device < 4; ++device) {
        const std::vector<uint64_t> bytes = CheckFile(output, device);
        EXPECT_EQ(bytes.size(), 1u);
        EXPECT_EQ(bytes, DeliveredBytes(daemon_->Errors(), device));
    }
}

TEST_F(ChannelStall, FillsTheQueuesToTheirBoundAndEverythingArrivesBehindIt) {
    SKIP_WITH_A_SANITIZER();
    ConfigureDriver(CounterConfig(1, "", PATIENT_DRIVER));
    StartDaemon();
    const auto job = StalledJob();

    const bool grew =
        Eventually([&] { return StatusBytes("VmRSS") > QUEUED_CHUNKS * CHUNK + BESIDE_THE_QUEUE; },
                   std::chrono::seconds(3));
    job->sink.Release();
    EXPECT_TRUE(job->sink.WaitForBytes(2 * QUEUED_CHUNKS * CHUNK));
    ASSERT_TRUE(job->Stop().Accepted());

    EXPECT_FALSE(grew) << "peak " << StatusBytes("VmHWM") / MIB << " MiB";
    EXPECT_LE(StatusBytes("VmHWM"), QUEUED_CHUNKS * CHUNK + BESIDE_THE_QUEUE);
    ExpectAllArrived(*job);
}

TEST_F(ChannelStall, NoThreadOfTheDaemonSpins) {
    SKIP_WITH_THE_THREAD_SANITIZER();
    ConfigureDriver(CounterConfig(1, "", PATIENT_DRIVER));
    StartDaemon();
    const auto job = StalledJob();
    // What still goes into the queue takes CPU time: it is full when none goes for a while.
    auto since = std::chrono::steady_clock::now();
    std::chrono::milliseconds before = CpuTime();
    ASSERT_TRUE(Eventually([&] {
        const std::chrono::milliseconds last = std::exchange(before, CpuTime());
        const auto now = std::chrono::steady_clock::now();
        since = before == last ? since : now;
        return now - since >= std::chrono::milliseconds(300);
    }));

    const bool burned =
        Eventually([&] { return CpuTime() - before > std::chrono::milliseconds(300); },
                   std::chrono::seconds(2));

    EXPECT_FALSE(burned);
    job->sink.Release();
    EXPECT_TRUE(job->Stop().Accepted());
}

TEST_F(ChannelStall, OtherControlSessionsAreServedMeanwhile) {
    ConfigureDriver(CounterConfig(2, MORE_THAN_A_STALL, PATIENT_DRIVER));
    StartDaemon(2);
    const auto stalled = StalledJob(STALL);
    const uint64_t arrived = stalled->sink.Bytes();

    HostJob other(link_, 1, "other");
    const host::Reply started = other.Start(SampleConfig("other", {{"sys_profiling", "on"}}));
    ASSERT_TRUE(started.Accepted()) << started.message << "\n" << daemon_->Errors();
    const host::Reply stopped = other.Stop();
    ASSERT_TRUE(stopped.Accepted()) << stopped.message << "\n" << daemon_->Errors();

    EXPECT_EQ(other.data->GetState(), DataSession::State::COMPLETE);
    EXPECT_EQ(stalled->sink.Bytes(), arrived);
    stalled->sink.Release();
    EXPECT_TRUE(stalled->Stop().Accepted());
    ExpectAllArrived(*stalled);
}

TEST_F(ChannelStall, BeyondTheLimitEndsTheSessionWithoutAFinish) {
    ConfigureDriver(CounterConfig(1, "", R"(,"stall_limit_ms":1000)"));
    StartDaemon();
    ChannelJob job(link_, 0, "late");
    job.sink.Hold();
    ASSERT_TRUE(job.Start().Accepted());

    ASSERT_TRUE(daemon_->WaitForError("Hdc Send, error"));
    job.sink.Release();

    EXPECT_EQ(job.data->WaitForEnd(std::chrono::seconds(60)), DataSession::State::BROKEN);
    EXPECT_NE(job.data->Failure().find("before the device had sent everything"), std::string::npos);
}

TEST_F(ChannelStall, StopOfAStalledJobHoldsOthersUpNoLongerThanTheLimit) {
    SKIP_WITH_THE_THREAD_SANITIZER();
    ConfigureDriver(CounterConfig(2, "", R"(,"stall_limit_ms":8000)"));
    StartDaemon(2);
    const auto stalled = StalledJob(STALL);
    ASSERT_TRUE(stalled->control->SendStopJob());
    ASSERT_TRUE(daemon_->WaitForError("channel stopped: device=0"));

    // Each answer has to come within 30 seconds; the host of the first job reads nothing for good.
    HostJob other(link_, 1, "other");
    const host::Reply started = other.Start(SampleConfig("other", {{"sys_profiling", "on"}}));
    ASSERT_TRUE(started.Accepted()) << started.message << "\n" << daemon_->Errors();
    const host::Reply stopped = other.Stop();
    ASSERT_TRUE(stopped.Accepted()) << stopped.message << "\n" << daemon_->Errors();

    EXPECT_EQ(other.data->GetState(), DataSession::State::COMPLETE);
    ASSERT_TRUE(daemon_->WaitForError("Hdc Send, error"));
    stalled->sink.Release();
    EXPECT_EQ(stalled->data->WaitForEnd(std::chrono::seconds(60)), DataSession::State::BROKEN);
}

TEST_F(ChannelStall, TivctlMarksTheResultIncomplete) {
    ConfigureDriver(CounterConfig(1, R"(,"bytes_per_second":200000000,"burst_bytes":800000)",
                                  R"(,"stall_limit_ms":1000)"));
    StartDaemon();
    const std::string output = directory_.MakeDir("results");
    const auto tivctl =
        Tivctl({"collect", "--llc", "read", "--duration", "1h", "--output", output});
    const std::string file = "data/llc.data";
    ASSERT_TRUE(Eventually([&] { return fs::exists(DeviceDirectory(output, 0) / file); }));

    tivctl->Signal(SIGSTOP);
    ASSERT_TRUE(daemon_->WaitForError("Hdc Send, error"));
    tivctl->Signal(SIGCONT);

    ASSERT_EQ(tivctl->Wait(), EXIT_INCOMPLETE) << tivctl->Errors();
    const fs::path result = DeviceDirectory(output, 0).parent_path();
    const json manifest = json::parse(FileContent(result / "manifest.json"));
    EXPECT_EQ(manifest["state"], "incomplete");
    EXPECT_EQ(manifest["devices"][0]["finishArrived"], false);
}

}  // namespace tiv::e2e

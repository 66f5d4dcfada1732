// A host that takes nothing for a while: sampling waits, nothing is lost, others are served.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "e2e/daemon_test.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"
#include "host/result/record_reader.h"

namespace tiv::e2e {

namespace {

using host::DataSession;
using host::Reply;

constexpr std::chrono::seconds PATIENCE{60};
constexpr const char* QUEUE_IS_FULL = "IsFULL, QueueName: UploaderQueue, QueueCapacity:512";
constexpr const char* SMALL_BUFFERS =
    R"({"devices": 2, "send_buffer_bytes": 16384, "receive_buffer_bytes": 16384})";
constexpr const char* SMALL_BUFFERS_AND_SHORT_LIMIT =
    R"({"send_buffer_bytes": 16384, "receive_buffer_bytes": 16384, "stall_limit_ms": 300})";

// Processes that do nothing, so that sampling every process fills the queue soon on any machine.
class Crowd {
 public:
    explicit Crowd(int size) {
        for (int i = 0; i < size; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
                for (;;) {
                    (void)pause();
                }
            }
            pids_.push_back(pid);
        }
    }
    ~Crowd() {
        for (const pid_t pid : pids_) {
            (void)kill(pid, SIGKILL);
            (void)waitpid(pid, nullptr, 0);
        }
    }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    [[nodiscard]] std::string FirstPid() const { return std::to_string(pids_.front()); }

 private:
    std::vector<pid_t> pids_;
};

// Records of a stream whose numbers do not follow each other from 0.
uint64_t RecordsOutOfOrder(const std::string& stream, uint64_t& records) {
    uint64_t wrong = 0;
    uint32_t next = 0;
    host::RecordReader reader([&](const host::SampleRecord& record) {
        wrong += record.index == next ? 0 : 1;
        ++next;
    });
    reader.Feed(stream);
    reader.Finish();
    records = reader.Records();
    return wrong + reader.UnreadableBytes();
}

class BackPressure : public DaemonTest {
 protected:
    // Every process is sampled, and the host takes nothing until the daemon can hold no more.
    void StartAndFill(HostJob& job) {
        ASSERT_TRUE(job.Start(AllProcesses("job")).Accepted());
        job.sink.Hold();
        ASSERT_TRUE(daemon_->WaitForError(QUEUE_IS_FULL)) << daemon_->Errors();
    }

    static std::string AllProcesses(const std::string& jobId) {
        return SampleConfig(jobId, {{"sys_profiling", "on"}, {"pid_profiling", "on"}});
    }

    void ExpectEveryRecord(HostJob& job) {
        EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
        uint64_t records = 0;
        for (const auto& [name, stream] : job.sink.Files()) {
            EXPECT_EQ(RecordsOutOfOrder(stream, records), 0u) << name;
        }
        const std::string crowd = "data/" + crowd_.FirstPid() + "-CpuUsage.data";
        EXPECT_EQ(RecordsOutOfOrder(job.sink.Files()[crowd], records), 0u);
        EXPECT_GE(records, 2u);
    }

    static bool Accepts(RawSession& session, const google::protobuf::Message& message) {
        return session.Send(message) && session.ReceiveAnswer().status == ACCEPTED;
    }

    Crowd crowd_{200};
};

}  // namespace

TEST_F(BackPressure, EverythingArrivesInOrderOnceTheHostReadsAgain) {
    ConfigureDriver(SMALL_BUFFERS);
    StartDaemon();
    HostJob job(link_, 0, "job");
    StartAndFill(job);

    job.sink.Release();
    const Reply stopped = job.Stop();

    EXPECT_TRUE(stopped.Accepted()) << stopped.message;
    ExpectEveryRecord(job);
}

TEST_F(BackPressure, OtherControlSessionsAnswerMeanwhile) {
    ConfigureDriver(SMALL_BUFFERS);
    StartDaemon(2);
    HostJob job(link_, 0, "job");
    StartAndFill(job);

    RawSession other(SocketPath(1));
    EXPECT_TRUE(Accepts(other, ControlHandshake("other", 1)));
    EXPECT_TRUE(Accepts(other, JobStart("other", AllProcesses("other"), "1")));
    EXPECT_TRUE(Accepts(other, JobStop("other", "1")));
    RawSession second(SocketPath(0));
    EXPECT_TRUE(second.Send(ControlHandshake("second")));
    EXPECT_EQ(second.ReceiveAnswer().status, REFUSED);

    job.sink.Release();
    EXPECT_TRUE(job.Stop().Accepted());
    ExpectEveryRecord(job);
}

TEST_F(BackPressure, JobStopWaitsForTheHostAndLosesNothing) {
    ConfigureDriver(SMALL_BUFFERS);
    StartDaemon();
    HostJob job(link_, 0, "job");
    StartAndFill(job);

    ASSERT_TRUE(job.control->SendStopJob());
    EXPECT_EQ(job.control->WaitForReply(std::chrono::milliseconds(200)).outcome,
              Reply::Outcome::TIMED_OUT);
    job.sink.Release();

    EXPECT_TRUE(job.control->WaitForReply(PATIENCE).Accepted());
    (void)job.data->WaitForEnd(PATIENCE);
    ExpectEveryRecord(job);
}

TEST_F(BackPressure, StalledBeyondTheLimitTheSessionEndsWithoutAFinish) {
    ConfigureDriver(SMALL_BUFFERS_AND_SHORT_LIMIT);
    StartDaemon();
    RawSession control(SocketPath(0));
    RawSession data(SocketPath(0), 4096);
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    ASSERT_TRUE(Accepts(data, DataHandshake("job")));
    ASSERT_TRUE(Accepts(control, JobStart("job", AllProcesses("job"))));
    ASSERT_TRUE(Accepts(control, ReplayStart("job")));

    ASSERT_TRUE(daemon_->WaitForError("Failed to upload data")) << daemon_->Errors();
    EXPECT_TRUE(control.Send(JobStop("job")));
    EXPECT_NE(control.ReceiveAnswer().status, -1);

    std::shared_ptr<google::protobuf::Message> last;
    for (auto message = data.ReceiveMessage(); message != nullptr;
         message = data.ReceiveMessage()) {
        last = message;
    }
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->GetTypeName(), "analysis.rokt.proto.FileChunkReq");
    EXPECT_TRUE(data.WaitForClose());
}

TEST_F(BackPressure, DaemonServesOnAfterAStall) {
    ConfigureDriver(SMALL_BUFFERS_AND_SHORT_LIMIT);
    StartDaemon();
    {
        RawSession control(SocketPath(0));
        RawSession data(SocketPath(0), 4096);
        ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
        ASSERT_TRUE(Accepts(data, DataHandshake("job")));
        ASSERT_TRUE(Accepts(control, JobStart("job", AllProcesses("job"))));
        ASSERT_TRUE(Accepts(control, ReplayStart("job")));
        ASSERT_TRUE(daemon_->WaitForError("Failed to upload data")) << daemon_->Errors();
    }

    EXPECT_TRUE(Eventually([&] {
        HostJob next(link_, 0, "next");
        return next.Start(AllProcesses("next")).Accepted() && next.Stop().Accepted() &&
               next.data->GetState() == DataSession::State::COMPLETE;
    }));
}

}  // namespace tiv::e2e

// A host or a daemon that is gone in the middle of a job.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "e2e/daemon_test.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;
using host::DataSession;
using nlohmann::json;

constexpr int INCOMPLETE_STATUS = 4;
constexpr const char* WORKING_DIR = "/var/log/npu/profiling";
const std::string LOST = "devIdOnHost(0) Failed to recv packet from host";

class LostPeer : public DaemonTest {
 protected:
    void SetUp() override {
        DaemonTest::SetUp();
        output_ = directory_.MakeDir("results");
    }

    std::unique_ptr<ChildProcess> LongCollection() {
        return Tivctl({"collect", "--duration", "1h", "--output", output_});
    }

    // The result's directory; empty before there is one.
    std::string Result() const {
        for (const auto& entry : fs::directory_iterator(output_)) {
            return entry.path().string();
        }
        return "";
    }

    // Bytes of samples that have arrived at tivctl.
    uint64_t BytesOfSamples() const {
        std::error_code ignored;
        uint64_t bytes = 0;
        for (const auto& entry : fs::directory_iterator(Result() + "/device_0/data", ignored)) {
            bytes += entry.file_size(ignored);
        }
        return bytes;
    }

    static bool WorkingDirIsEmpty() {
        std::error_code error;
        return fs::is_empty(WORKING_DIR, error) || error;
    }

    // A whole job with every sampler: none of them may be held by a job that is gone.
    bool WholeJobRuns(const std::string& jobId) {
        HostJob job(link_, 0, jobId);
        const std::string all =
            SampleConfig(jobId, {{"sys_profiling", "on"}, {"pid_profiling", "on"}});
        return job.Start(all).Accepted() && job.Stop().Accepted() &&
               job.data->GetState() == DataSession::State::COMPLETE &&
               job.sink.Files().count("data/Memory.data") == 1;
    }

    std::string output_;
};

}  // namespace

TEST_F(LostPeer, KilledHostEndsItsJobAndTheNextIsAccepted) {
    StartDaemon();
    const auto tivctl = LongCollection();
    ASSERT_TRUE(Eventually([&] { return BytesOfSamples() > 0; }));
    ASSERT_FALSE(WorkingDirIsEmpty());

    tivctl->Kill();

    EXPECT_TRUE(daemon_->WaitForError(LOST));
    EXPECT_TRUE(Eventually([] { return WorkingDirIsEmpty(); }));
    EXPECT_TRUE(Eventually([&] { return WholeJobRuns("next"); }));
}

TEST_F(LostPeer, KilledHostThatReadNothingEndsItsJob) {
    StartDaemon();
    auto control = std::make_unique<RawSession>(SocketPath(0));
    auto data = std::make_unique<RawSession>(SocketPath(0));
    ASSERT_TRUE(control->Send(ControlHandshake("job")) && data->Send(DataHandshake("job")));
    ASSERT_EQ(control->ReceiveAnswer().status, ACCEPTED);
    // The answer of the data session stays unread, but the device has to know the session.
    ASSERT_TRUE(Eventually([&] { return data->HasUnread(); }));
    ASSERT_TRUE(control->Send(JobStart("job", SampleConfig("job", {{"sys_profiling", "on"}}))));
    ASSERT_EQ(control->ReceiveAnswer().status, ACCEPTED);
    ASSERT_TRUE(control->Send(ReplayStart("job")));
    ASSERT_EQ(control->ReceiveAnswer().status, ACCEPTED);

    data->Close();
    control->Close();

    EXPECT_TRUE(daemon_->WaitForError(LOST));
    EXPECT_TRUE(Eventually([] { return WorkingDirIsEmpty(); }));
    EXPECT_TRUE(Eventually([&] { return WholeJobRuns("next"); }));
}

TEST_F(LostPeer, LostDataSessionLeavesTheControlSessionItsAnswers) {
    StartDaemon();
    HostJob job(link_, 0, "job");
    ASSERT_TRUE(job.Start(SampleConfig("job", {{"sys_profiling", "on"}})).Accepted());

    job.data->Close();

    EXPECT_TRUE(job.control->StopReplay().Accepted());
    EXPECT_TRUE(job.control->SendStopJob());
    EXPECT_NE(job.control->WaitForReply(std::chrono::seconds(60)).outcome,
              host::Reply::Outcome::TIMED_OUT);
    job.control.reset();
    EXPECT_TRUE(Eventually([&] { return WholeJobRuns("next"); }));
}

TEST_F(LostPeer, LostHostOfOneDeviceLeavesTheOtherItsJob) {
    ConfigureDriver(R"({"devices": 2})");
    StartDaemon(2);
    HostJob job(link_, 1, "stays");
    ASSERT_TRUE(job.Start(SampleConfig("stays", {{"pid_profiling", "on"}})).Accepted());
    const auto tivctl =
        Tivctl({"collect", "--cpu", "--memory", "--duration", "1h", "--output", output_});
    ASSERT_TRUE(Eventually([&] { return BytesOfSamples() > 0; }));

    tivctl->Kill();
    ASSERT_TRUE(daemon_->WaitForError(LOST));

    EXPECT_TRUE(job.Stop().Accepted());
    EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE);
}

TEST_F(LostPeer, KilledDaemonLeavesTivctlWhatArrived) {
    StartDaemon();
    const auto tivctl = LongCollection();
    ASSERT_TRUE(Eventually([&] { return BytesOfSamples() > 0; }));

    daemon_->Kill();

    EXPECT_EQ(tivctl->Wait(), INCOMPLETE_STATUS) << tivctl->Errors();
    const json manifest = json::parse(FileContent(Result() + "/manifest.json"));
    EXPECT_EQ(manifest["state"], "incomplete");
    EXPECT_EQ(manifest["devices"][0]["finishArrived"], false);
    uint64_t bytes = 0;
    for (const auto& file : manifest["devices"][0]["files"]) {
        bytes += file["bytes"].get<uint64_t>();
    }
    EXPECT_EQ(bytes, BytesOfSamples());
    EXPECT_GT(bytes, 0u);
}

TEST_F(LostPeer, DaemonThatIsStartedAgainServesTheNextCollection) {
    StartDaemon();
    const auto tivctl = LongCollection();
    ASSERT_TRUE(Eventually([&] { return BytesOfSamples() > 0; }));
    daemon_->Kill();
    ASSERT_EQ(tivctl->Wait(), INCOMPLETE_STATUS);

    daemon_ = NewDaemon("again");
    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();

    const auto next =
        Tivctl({"collect", "--duration", "300ms", "--output", directory_.MakeDir("next")});
    EXPECT_EQ(next->Wait(), 0) << next->Errors();
}

TEST_F(LostPeer, HostWithoutDaemonIsToldWhatToDo) {
    const auto tivctl = LongCollection();

    EXPECT_EQ(tivctl->Wait(), 3);
    EXPECT_NE(tivctl->Errors().find("no daemon serves it here: start `tiv`"), std::string::npos)
        << tivctl->Errors();
}

}  // namespace tiv::e2e

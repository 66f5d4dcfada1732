// Placing the helper script, and the jobs that need it.
#include "e2e/control_cpu_fixture.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>

namespace tiv::e2e {

bool Shell(const std::string& line) { return std::system(line.c_str()) == 0; }

// What an earlier test of this process configured lies in a file that is gone.
void HelperScriptTest::SetUp() {
    DaemonTest::SetUp();
    ASSERT_EQ(unsetenv("TIV_DRIVER_CONFIG"), 0);
}

void HelperScriptTest::Place(const std::string& script) {
    ASSERT_TRUE(Shell(TIV_SOURCE_DIR "/tools/place_script.sh " TIV_SOURCE_DIR "/" + script));
}

void HelperScriptTest::StartTalkativeDaemon(int devices) {
    StartDaemon(devices, {{"TIV_LOG_LEVEL", "info"}});
}

host::Reply HelperScriptTest::StartRecording(HostJob& job, const std::string& jobId) {
    host::Reply reply = job.control->Handshake();
    if (reply.Accepted()) {
        reply = job.data->Handshake();
    }
    if (reply.Accepted()) {
        reply = job.control->StartJob(SampleConfig(jobId, {}));
    }
    return reply.Accepted() ? job.control->StartReplay({"0x11", "0x2a"}, {}) : reply;
}

std::string HelperScriptTest::CollectUntil(const std::function<bool()>& ready,
                                           std::vector<std::string> words) {
    const std::string output = directory_.MakeDir("results");
    words.insert(words.begin(), {"collect", "--duration", "1h", "--output", output});
    tivctl_ = Tivctl(std::move(words));
    EXPECT_TRUE(Eventually(ready)) << tivctl_->Errors();
    EXPECT_TRUE(tivctl_->WaitForError("collecting"));
    tivctl_->Signal(SIGINT);
    EXPECT_EQ(tivctl_->Wait(), 0) << tivctl_->Errors();
    for (const auto& entry : std::filesystem::directory_iterator(output)) {
        return entry.path().string();
    }
    return "";
}

std::vector<std::string> HelperScriptTest::Row(const std::string& name) const {
    std::istringstream lines(tivctl_->Output());
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<std::string> row(std::istream_iterator<std::string>(words), {});
        if (!row.empty() && row.front() == name) {
            return row;
        }
    }
    return {};
}

}  // namespace tiv::e2e

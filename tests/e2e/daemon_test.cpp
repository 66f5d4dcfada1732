// Shared steps of the end-to-end tests.
#include "e2e/daemon_test.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "e2e/isolation.h"

namespace tiv::e2e {

bool MemorySink::OnChunk(const host::ReceivedChunk& chunk) {
    MutexLock lock(mutex_);
    while (held_) {
        released_.Wait(mutex_);
    }
    files_[std::string(chunk.fileName)].append(chunk.data);
    bytes_ += chunk.data.size();
    return true;
}

void MemorySink::Hold() {
    MutexLock lock(mutex_);
    held_ = true;
}

void MemorySink::Release() {
    MutexLock lock(mutex_);
    held_ = false;
    released_.NotifyAll();
}

std::map<std::string, std::string> MemorySink::Files() {
    MutexLock lock(mutex_);
    return files_;
}

uint64_t MemorySink::Bytes() {
    MutexLock lock(mutex_);
    return bytes_;
}

HostJob::HostJob(host::DeviceLink& link, int deviceId, const std::string& jobId) {
    std::string error;
    auto first = link.Connect(deviceId, error);
    auto second = link.Connect(deviceId, error);
    if (first == nullptr || second == nullptr) {
        ADD_FAILURE() << error;
        return;
    }
    control = std::make_unique<host::ControlSession>(deviceId, jobId, std::move(first));
    data = std::make_unique<host::DataSession>(deviceId, jobId, std::move(second), sink);
}

host::Reply HostJob::Start(const std::string& sampleConfig) {
    host::Reply reply = control->Handshake();
    if (reply.Accepted()) {
        reply = data->Handshake();
    }
    if (reply.Accepted()) {
        reply = control->StartJob(sampleConfig);
    }
    return reply.Accepted() ? control->StartReplay({}, {}) : reply;
}

host::Reply HostJob::Stop() {
    host::Reply reply = control->StopReplay();
    if (!reply.Accepted() || !control->SendStopJob()) {
        return reply;
    }
    reply = control->WaitForReply(std::chrono::seconds(60));
    (void)data->WaitForEnd(std::chrono::seconds(60));
    return reply;
}

std::string SampleConfig(const std::string& jobId,
                         const std::vector<std::pair<std::string, std::string>>& switches) {
    std::string text = "{\"job_id\":\"" + jobId + "\"";
    for (const auto& [key, value] : switches) {
        text += ",\"" + key + "\":\"" + value + "\"";
    }
    return text + "}";
}

void DaemonTest::SetUp() {
    ASSERT_TRUE(IsIsolated()) << "the daemon is started in a private namespace only";
    ASSERT_EQ(setenv("TIV_RUNTIME_DIR", directory_.MakeDir("run").c_str(), 1), 0);
}

// A program under a sanitizer reports on its error output and may be killed before it ends.
void DaemonTest::TearDown() {
    for (const auto& entry : std::filesystem::directory_iterator(directory_.Path())) {
        if (entry.path().extension() == ".err") {
            const std::string errors = FileContent(entry.path().string());
            EXPECT_EQ(errors.find("Sanitizer: "), std::string::npos) << errors;
            EXPECT_EQ(errors.find("runtime error: "), std::string::npos) << errors;
        }
    }
}

void DaemonTest::ConfigureDriver(const std::string& json) {
    ASSERT_EQ(setenv("TIV_DRIVER_CONFIG", directory_.Write("driver.json", json).c_str(), 1), 0);
}

std::unique_ptr<ChildProcess> DaemonTest::NewDaemon(const std::string& name,
                                                    const Environment& environment) {
    return std::make_unique<ChildProcess>(directory_.Path(), name,
                                          std::vector<std::string>{TIV_PROGRAM}, environment);
}

std::string DaemonTest::SocketPath(int device) const {
    return directory_.Path("run/hdc_" + std::to_string(device) + "_4.sock");
}

// A socket may be there before it listens: the connection tells.
bool DaemonTest::WaitForServer(int device) const {
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, SocketPath(device).c_str(), sizeof(address.sun_path) - 1);
    return Eventually([&] {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool up =
            connect(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) == 0;
        close(fd);
        return up;
    });
}

void DaemonTest::StartDaemon(int devices, const Environment& environment) {
    daemon_ = NewDaemon("daemon", environment);
    for (int device = 0; device < devices; ++device) {
        ASSERT_TRUE(WaitForServer(device)) << daemon_->Errors();
    }
}

std::unique_ptr<ChildProcess> DaemonTest::Tivctl(std::vector<std::string> words) {
    words.insert(words.begin(), TIVCTL_PROGRAM);
    return std::make_unique<ChildProcess>(directory_.Path(), "tivctl", std::move(words));
}

}  // namespace tiv::e2e

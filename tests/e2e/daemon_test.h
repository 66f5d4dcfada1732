// What every end-to-end test starts with: a directory, a runtime directory, and the daemon.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "e2e/child_process.h"
#include "host/control_session.h"
#include "host/data_session.h"
#include "host/device_link.h"
#include "support/temp_dir.h"

namespace tiv::e2e {

// Keeps what arrives in memory, file by file; can be told to hold the reading thread.
class MemorySink : public host::ChunkSink {
 public:
    bool OnChunk(const host::ReceivedChunk& chunk) override;

    // From here on the reading thread blocks in the next chunk until Release.
    void Hold();
    void Release();

    std::map<std::string, std::string> Files();
    uint64_t Bytes();

 private:
    Mutex mutex_;
    CondVar released_;
    bool held_ GUARDED_BY(mutex_) = false;
    std::map<std::string, std::string> files_ GUARDED_BY(mutex_);
    uint64_t bytes_ GUARDED_BY(mutex_) = 0;
};

// A host tool's two sessions with one device.
struct HostJob {
    HostJob(host::DeviceLink& link, int deviceId, const std::string& jobId);

    // Handshakes, job start and collection start; the first refusal stops it and is returned.
    host::Reply Start(const std::string& sampleConfig);
    // Collection stop and job stop, and waits for all data. The reply to the job stop.
    host::Reply Stop();

    MemorySink sink;
    std::unique_ptr<host::ControlSession> control;
    std::unique_ptr<host::DataSession> data;
};

// The JSON text of a sample configuration: the job's id and "key":"value" pairs.
std::string SampleConfig(const std::string& jobId,
                         const std::vector<std::pair<std::string, std::string>>& switches);

class DaemonTest : public testing::Test {
 protected:
    void SetUp() override;
    // Holds that no sanitizer found anything in the programs that the test started.
    void TearDown() override;

    // Starts the daemon and waits until its servers of `devices` devices listen.
    void StartDaemon(int devices = 1, const Environment& environment = {});
    std::unique_ptr<ChildProcess> NewDaemon(const std::string& name,
                                            const Environment& environment = {});
    // Writes the driver's configuration, which the daemon and this process use.
    void ConfigureDriver(const std::string& json);
    [[nodiscard]] std::string SocketPath(int device) const;
    [[nodiscard]] bool WaitForServer(int device) const;
    std::unique_ptr<ChildProcess> Tivctl(std::vector<std::string> words);

    test::TempDir directory_;
    std::unique_ptr<ChildProcess> daemon_;
    host::DeviceLink link_;
};

}  // namespace tiv::e2e

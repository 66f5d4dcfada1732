// What the tests of the control plane share: a card without effects on this machine, and messages.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "device/memory_transport.h"
#include "message/profiler.pb.h"
#include "message/status_info.h"

namespace tiv::test {

namespace proto = ::analysis::rokt::proto;

// What a Response frame says.
struct Answer {
    bool isResponse = false;
    bool success = false;
    int status = -1;
    std::string devId;
    std::string info;
};

Answer AnswerOf(const std::string& frame);
std::string Encode(const std::shared_ptr<google::protobuf::Message>& message);
std::string ContextText(const std::string& devId, const std::string& jobId);

std::shared_ptr<proto::JobStartReq> JobStart(const std::string& context,
                                             const std::string& sampleConfig);
std::shared_ptr<proto::JobStopReq> JobStop(const std::string& context);
std::shared_ptr<proto::ReplayStartReq> ReplayStart(const std::string& context);
std::shared_ptr<proto::ReplayStopReq> ReplayStop(const std::string& context);
std::shared_ptr<proto::CtrlChannelHandshake> CtrlHandshake(const std::string& jobId, int32_t devId,
                                                           const std::string& mode);
std::shared_ptr<proto::DataChannelHandshake> DataHandshake(const std::string& jobId,
                                                           const std::string& mode);

// A card whose component is started, on a file system that only records what is done to it: no
// directory is made or removed, and the working directories never exist. Sleeps are short. The
// component is ended after each test.
class DeviceTest : public ::testing::Test {
 protected:
    DeviceTest();
    ~DeviceTest() override;

    // Files a receiver with a session of its own; its thread is not started.
    std::shared_ptr<MemoryTransport> FileReceiver(const std::string& jobId, int32_t devIndexId);
    // Makes a running uploader for the job and gives its session.
    std::shared_ptr<MemoryTransport> FileUploader(const std::string& jobId);
};

// Paths that a recorded function of the file system was given.
std::vector<std::string> PathsOf(const std::string& function);
bool Logged(char level, const std::string& text);

}  // namespace tiv::test

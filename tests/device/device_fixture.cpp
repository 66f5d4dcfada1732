// The card of the control plane's tests.
#include "device/device_fixture.h"

#include <unistd.h>

#include "device/collection_entry.h"
#include "device/prof_device_core.h"
#include "device/receiver.h"
#include "device/task_relationship_mgr.h"
#include "message/codec.h"
#include "message/job_context.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {

using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::Receiver;
using analysis::rokt::message::Codec;

namespace {

bool IsWorkingDirectory(const std::string& path) { return path.rfind("/var/log/npu", 0) == 0; }

void QuietFileSystem(FakeMm& mm) {
    for (const char* function : {"mmMkdir", "mmChmod", "mmRmdir", "mmUnlink"}) {
        mm.calls.Return(function, 0, -1);
    }
    mm.mmScandir = [](const char*, mmDirent***, mmFilter, mmSort) { return 0; };
    mm.mmScandirFree = [](mmDirent**, int32_t) {};
    mm.mmAccess2 = [](const char* path, int32_t mode) {
        return IsWorkingDirectory(path) ? -1 : access(path, mode);
    };
    mm.mmSleep = [](uint32_t) { return usleep(200); };
}

template <class Request>
std::shared_ptr<Request> WithContext(const std::string& context) {
    auto request = std::make_shared<Request>();
    request->mutable_hdr()->set_job_ctx(context);
    return request;
}

}  // namespace

Answer AnswerOf(const std::string& frame) {
    Answer answer;
    const auto response = std::dynamic_pointer_cast<proto::Response>(Codec::DecodeMessage(frame));
    analysis::rokt::message::StatusInfo status;
    if (response != nullptr && status.FromString(response->message())) {
        answer.isResponse = true;
        answer.success = response->status() == proto::SUCCESS;
        answer.status = status.status;
        answer.devId = status.dev_id;
        answer.info = status.info;
    }
    return answer;
}

std::string Encode(const std::shared_ptr<google::protobuf::Message>& message) {
    return Codec::EncodeMessage(message);
}

std::string ContextText(const std::string& devId, const std::string& jobId) {
    analysis::rokt::message::JobContext context;
    context.dev_id = devId;
    context.job_id = jobId;
    return context.ToString();
}

std::shared_ptr<proto::JobStartReq> JobStart(const std::string& context,
                                             const std::string& sampleConfig) {
    auto request = WithContext<proto::JobStartReq>(context);
    request->set_sampleconfig(sampleConfig);
    return request;
}

std::shared_ptr<proto::JobStopReq> JobStop(const std::string& context) {
    return WithContext<proto::JobStopReq>(context);
}

std::shared_ptr<proto::ReplayStartReq> ReplayStart(const std::string& context) {
    return WithContext<proto::ReplayStartReq>(context);
}

std::shared_ptr<proto::ReplayStopReq> ReplayStop(const std::string& context) {
    return WithContext<proto::ReplayStopReq>(context);
}

std::shared_ptr<proto::CtrlChannelHandshake> CtrlHandshake(const std::string& jobId, int32_t devId,
                                                           const std::string& mode) {
    auto handshake = std::make_shared<proto::CtrlChannelHandshake>();
    handshake->set_jobid(jobId);
    handshake->set_devid(devId);
    handshake->set_mode(mode);
    return handshake;
}

std::shared_ptr<proto::DataChannelHandshake> DataHandshake(const std::string& jobId,
                                                           const std::string& mode) {
    auto handshake = std::make_shared<proto::DataChannelHandshake>();
    handshake->set_jobid(jobId);
    handshake->set_mode(mode);
    return handshake;
}

DeviceTest::DeviceTest() {
    FakeMm::Instance().Reset();
    FakeDriver::Instance().Reset();
    Analysis::Rokt::TaskHandle::TaskRelationshipMgr::Instance().ResetRelation();
    QuietFileSystem(FakeMm::Instance());
    EXPECT_EQ(IdeDeviceProfileInit(), 0);
    RecordedLog::Instance().Clear();
    FakeMm::Instance().calls.ClearCalls();
}

// The threads of uploaders that a test leaves behind end before the process-wide objects do.
DeviceTest::~DeviceTest() {
    IdeDeviceProfileCleanup();
    analysis::rokt::transport::UploaderMgr::Instance().DelAllUploader();
}

std::shared_ptr<MemoryTransport> DeviceTest::FileReceiver(const std::string& jobId,
                                                          int32_t devIndexId) {
    auto session = std::make_shared<MemoryTransport>();
    auto receiver = std::make_shared<Receiver>(session);
    EXPECT_EQ(receiver->Init(devIndexId), 0);
    CollectionEntry::Instance().AddReceiver("mode-of-" + jobId, jobId, devIndexId, receiver);
    return session;
}

std::shared_ptr<MemoryTransport> DeviceTest::FileUploader(const std::string& jobId) {
    auto session = std::make_shared<MemoryTransport>();
    EXPECT_EQ(
        analysis::rokt::transport::UploaderMgr::Instance().CreateUploader(jobId, session, 512), 0);
    return session;
}

std::vector<std::string> PathsOf(const std::string& function) {
    std::vector<std::string> paths;
    for (const Call& call : FakeMm::Instance().calls.Calls(function)) {
        paths.push_back(call.Text("path"));
    }
    return paths;
}

bool Logged(char level, const std::string& text) {
    return RecordedLog::Instance().Has(level, text);
}

}  // namespace tiv::test

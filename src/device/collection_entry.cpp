// The handshakes of control and data sessions.
#include "device/collection_entry.h"

#include <exception>
#include <vector>

#include "common/impl_utils.h"
#include "common/thread_names.h"
#include "common/utils.h"
#include "config/param_validation.h"
#include "config/platform.h"
#include "device/data_session_end.h"
#include "device/receiver.h"
#include "device/session_reply.h"
#include "device/task_relationship_mgr.h"
#include "message/codec.h"
#include "platform/log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace analysis::rokt::device {
namespace {

using common::validation::ParamValidation;

// Holds what an earlier run left; emptied at each start.
constexpr const char* PROFILER_DIR = "/usr/local/profiler/";

// Chunks that may wait for one data session.
constexpr size_t UPLOADER_QUEUE_SIZE = 512;

template <class T>
std::shared_ptr<T> MakeForSession(const std::shared_ptr<transport::ITransport>& transport) {
    try {
        return std::make_shared<T>(transport);
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

std::string EncodeResponse(const message::StatusInfo& status) {
    return message::Codec::EncodeMessage(message::CreateResponse(status));
}

void SendRefusal(transport::ITransport& transport, const message::StatusInfo& status,
                 int32_t devIndexId) {
    const std::string encoded = EncodeResponse(status);
    const int sent = transport.SendBuffer(encoded.c_str(), static_cast<int>(encoded.size()));
    TIV_LOGW("Reply handle failed, dev_id=%d, statusInfo=%s, response sent size:%d, resp size:%zu",
             devIndexId, status.ToString().c_str(), sent, encoded.size());
}

// Through the queue, ahead of all data.
void AcceptDataSession(transport::Uploader& uploader) {
    message::StatusInfo accepted;
    accepted.status = 0;
    const std::string encoded = EncodeResponse(accepted);
    const int sent = uploader.UploadData(encoded.c_str(), static_cast<int>(encoded.size()));
    TIV_LOGI("Reply data handshake, statusInfo=%s, response sent size:%d, resp size:%zu",
             accepted.ToString().c_str(), sent, encoded.size());
}

}  // namespace

int CollectionEntry::Init() {
    TIV_EVENT("Begin to init Collection Entry");
    common::utils::Utils::RemoveDir(tiv::ExpandHome(PROFILER_DIR), false);
    if (Analysis::Rokt::Common::Platform::Platform::Instance().InitRunSide() != 0) {
        return -1;
    }
    OpenReceivers();
    closing = false;
    inited = true;
    return 0;
}

int CollectionEntry::Uninit() {
    closing = true;
    TIV_LOGI("uinit Collection Entry.");
    if (inited) {
        // A receiver's blocked read ends only when its session closes; Uninit closes it before it
        // stops and joins the thread. The table's lock is free meanwhile, since a handler on such a
        // thread may want it.
        for (const std::shared_ptr<Receiver>& receiver : CloseReceivers()) {
            receiver->Uninit();
        }
        transport::UploaderMgr::Instance().Uninit();
        inited = false;
    }
    return 0;
}

int CollectionEntry::Handle(const std::shared_ptr<transport::ITransport>& transport,
                            const std::string& value, int32_t devIndexId) {
    if (!inited || closing || transport == nullptr) {
        TIV_LOGE("Collection Entry was not inited.");
        return -1;
    }
    message::StatusInfo status;
    int ret = -1;
    // Both live until the refusal is out: a receiver that goes takes the session with it.
    std::shared_ptr<Receiver> receiver;
    std::shared_ptr<transport::Uploader> uploader;
    const auto message = message::Codec::DecodeMessage(value);
    if (message == nullptr) {
        TIV_LOGW("Failed to decode message");
        status.info = "Failed to decode message";
    } else if (const auto ctrl = std::dynamic_pointer_cast<proto::CtrlChannelHandshake>(message)) {
        receiver = MakeForSession<Receiver>(transport);
        ret = HandleCtrlSession(receiver, *ctrl, status, devIndexId);
    } else if (const auto data = std::dynamic_pointer_cast<proto::DataChannelHandshake>(message)) {
        uploader = MakeForSession<transport::Uploader>(transport);
        ret = HandleDataSession(uploader, *data, devIndexId);
    } else {
        status.info = "unknown message";
    }
    if (ret != 0) {
        SendRefusal(*transport, status, devIndexId);
    }
    return ret;
}

bool CollectionEntry::LastJobIsRunning(int32_t devIndexId, const std::string& mode) {
    const std::string lastJobId = GetModeJobIdRelation(devIndexId, mode);
    if (lastJobId.empty()) {
        return false;
    }
    const std::shared_ptr<Receiver> last = GetReceiver(lastJobId, devIndexId);
    if (last == nullptr || last->IsQuit()) {
        return false;
    }
    TIV_LOGE("Last profiling job %s on device %u has not exited, please try again later",
             lastJobId.c_str(), static_cast<uint32_t>(devIndexId));
    return true;
}

int CollectionEntry::HandleCtrlSession(const std::shared_ptr<Receiver>& receiver,
                                       const proto::CtrlChannelHandshake& handshake,
                                       message::StatusInfo& status, int32_t devIndexId) {
    const int32_t hostId = handshake.devid();
    TIV_LOGI("Device %d Received ctrl handshake, devIdOnHost: %d", devIndexId, hostId);
    if (receiver == nullptr || LastJobIsRunning(devIndexId, handshake.mode())) {
        return -1;
    }
    if (!ParamValidation::Instance().CheckDeviceIdIsValid(std::to_string(hostId))) {
        TIV_LOGE("[HandleCtrlSession]hostId: %d is not valid!", hostId);
        return -1;
    }
    receiver->SetDevIdOnHost(hostId);
    Analysis::Rokt::TaskHandle::TaskRelationshipMgr::Instance().AddRelation(hostId, devIndexId);
    const int ret = receiver->Init(devIndexId);
    if (ret != 0) {
        TIV_LOGE("Failed to init receiver");
        status.info = "Failed to init receiver";
        return ret;
    }
    return StartReceiver(receiver, handshake, status, devIndexId);
}

int CollectionEntry::StartReceiver(const std::shared_ptr<Receiver>& receiver,
                                   const proto::CtrlChannelHandshake& handshake,
                                   message::StatusInfo& status, int32_t devIndexId) {
    status.status = 0;
    const std::string encoded = EncodeResponse(status);
    const std::shared_ptr<transport::ITransport> session = receiver->GetTransport();
    const int sent = session->SendBuffer(encoded.c_str(), static_cast<int>(encoded.size()));
    TIV_LOGI("Reply ctrl handshake, statusInfo=%s, response sent size:%d, resp size:%zu",
             status.ToString().c_str(), sent, encoded.size());
    AddReceiver(handshake.mode(), handshake.jobid(), devIndexId, receiver);
    receiver->SetThreadName(common::thread::CTRL_RECV_THREAD_NAME);
    const int ret = receiver->Launch();
    if (ret != 0) {
        TIV_LOGE("[HandleCtrlSession]Failed to start receiver thread, ret=%d", ret);
        // A row whose thread never ran would block this device and mode for good.
        ForgetReceiver(handshake.jobid(), devIndexId, receiver);
        status.status = 1;
        return ret;
    }
    TIV_LOGI("Ctrl session finished, devId:%d, devIdOnHost:%d", devIndexId, handshake.devid());
    return 0;
}

int CollectionEntry::HandleDataSession(const std::shared_ptr<transport::Uploader>& uploader,
                                       const proto::DataChannelHandshake& handshake,
                                       int32_t devIndexId) {
    TIV_LOGI("Device %d Received data handshake", devIndexId);
    const std::string& jobId = handshake.jobid();
    if (!ParamValidation::Instance().CheckJobIdIsValid(jobId)) {
        TIV_LOGE("[HandleDataSession]jobID is invalid!");
        return -1;
    }
    if (!ParamValidation::Instance().CheckProfilingModeIsValid(handshake.mode())) {
        TIV_LOGE("[HandleDataSession]profilingMode is invalid!");
        return -1;
    }
    const int ret = StartUploader(uploader, jobId);
    if (ret != 0) {
        return ret;
    }
    auto& uploaders = transport::UploaderMgr::Instance();
    uploaders.AnswerAndAdd(static_cast<uint32_t>(devIndexId), handshake.mode(), jobId, uploader,
                           [&uploader] { AcceptDataSession(*uploader); });
    if (closing) {
        // The sweep of the uploaders may have passed already.
        uploaders.DelUploader(jobId);
    }
    return 0;
}

int CollectionEntry::StartUploader(const std::shared_ptr<transport::Uploader>& uploader,
                                   const std::string& jobId) {
    if (uploader == nullptr) {
        return -1;
    }
    const int initRet = uploader->Init(UPLOADER_QUEUE_SIZE);
    if (initRet != 0) {
        TIV_LOGE("[HandleDataSession]Failed to init uploader thread, initRet=%d", initRet);
        return initRet;
    }
    uploader->SetThreadName(std::string(common::thread::UPLOADER_THREAD_NAME) + "_" + jobId);
    const int ret = uploader->Start();
    if (ret != 0) {
        TIV_LOGE("[HandleDataSession]Failed to start uploader thread, ret=%d", ret);
    }
    return ret;
}

int CollectionEntry::FinishCollection(int32_t devIndexId, const std::string& jobId) {
    return FinishDataSession(devIndexId, jobId);
}

int SendReply(const std::string& jobId, int32_t devIndexId,
              const std::shared_ptr<google::protobuf::Message>& message) {
    return CollectionEntry::Instance().SendMsgByDevId(jobId, devIndexId, message);
}

}  // namespace analysis::rokt::device

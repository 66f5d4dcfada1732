// The life of a control session: reading, handling, and the end of a lost one.
#include "device/receiver.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "common/error_manager.h"
#include "device/prof_msg_handler.h"
#include "device/task_manager.h"
#include "hdc/request_packet.h"
#include "message/codec.h"
#include "platform/log.h"

namespace analysis::rokt::device {
namespace {

// Gives the packet back to the transport that received it.
class PacketHolder {
 public:
    explicit PacketHolder(transport::KbxTransport& owner) : owner_(owner) {}
    ~PacketHolder() {
        if (packet != nullptr) {
            owner_.DestroyPacket(packet);
        }
    }
    PacketHolder(const PacketHolder&) = delete;
    PacketHolder& operator=(const PacketHolder&) = delete;

    IdeTlvReq* packet = nullptr;

 private:
    transport::KbxTransport& owner_;
};

}  // namespace

Receiver::Receiver(const std::shared_ptr<transport::ITransport>& sessionTransport)
    : transport(sessionTransport) {}

Receiver::~Receiver() {
    Uninit();
    msgDispatcher.reset();
}

int Receiver::Init(int32_t devIndex) {
    msgDispatcher = std::make_shared<message::MsgDispatcher>();
    msgDispatcher->RegisterHandler<proto::JobStartReq>(
        std::make_shared<JobStartHandler>(GetTransport()));
    msgDispatcher->RegisterHandler<proto::JobStopReq>(std::make_shared<JobStopHandler>());
    msgDispatcher->RegisterHandler<proto::ReplayStartReq>(std::make_shared<ReplayStartHandler>());
    msgDispatcher->RegisterHandler<proto::ReplayStopReq>(std::make_shared<ReplayStopHandler>());
    devIndexId = devIndex;
    inited = true;
    return 0;
}

int Receiver::Launch() {
    tiv::MutexLock lock(lifeMutex);
    return GetTransport() != nullptr ? Start() : -1;
}

int Receiver::Uninit() {
    tiv::MutexLock lock(lifeMutex);
    TIV_LOGI("Receiver Unint");
    const std::shared_ptr<transport::ITransport> session = GetTransport();
    if (session != nullptr) {
        session->CloseSession();
        if (Stop() != 0) {
            TIV_LOGW("Faied to stop thread: %s", GetThreadName().c_str());
        }
        TakeTransport();
    }
    devIndexId = -1;
    inited = false;
    return 0;
}

int Receiver::SendMessage(const std::shared_ptr<google::protobuf::Message>& message) {
    const std::shared_ptr<transport::ITransport> session = GetTransport();
    if (message == nullptr || session == nullptr) {
        return -1;
    }
    const std::string encoded = message::Codec::EncodeMessage(message);
    const int ret = session->SendBuffer(encoded.c_str(), static_cast<int>(encoded.size()));
    TIV_LOGI("DeviceOnHost(%d) Send message size %zu ret %d", devIdOnHost, encoded.size(), ret);
    return ret;
}

std::shared_ptr<transport::ITransport> Receiver::GetTransport() const {
    tiv::MutexLock lock(transportMutex);
    return transport;
}

std::shared_ptr<transport::ITransport> Receiver::TakeTransport() {
    tiv::MutexLock lock(transportMutex);
    return std::move(transport);
}

void Receiver::Run(const Analysis::Rokt::ZelnarErrMgr::ErrorContext& errorContext) {
    Analysis::Rokt::ZelnarErrMgr::ZelnarErrorManager::Instance().SetErrorContext(errorContext);
    TIV_LOGI("Receiver begin, devId:%d, devIdOnHost:%d", devIndexId, devIdOnHost);
    if (!inited) {
        TIV_LOGE("Receiver is not inited.");
        return;
    }
    // Uninit clears the member while this thread still works on the session.
    const std::shared_ptr<transport::ITransport> session = GetTransport();
    if (ReadMessages(session) == Outcome::LOST) {
        EndLostSession(session);
    }
    TIV_LOGI("Receiver end, devId:%d, devIdOnHost:%d", devIndexId, devIdOnHost);
}

Receiver::Outcome Receiver::ReadMessages(const std::shared_ptr<transport::ITransport>& session) {
    const auto packets = std::dynamic_pointer_cast<transport::KbxTransport>(session);
    if (packets == nullptr) {
        return Outcome::LOST;
    }
    do {
        // One message that does not fit in memory must not end the session, still less the process.
        try {
            std::string value;
            if (!ReceiveValue(*packets, value)) {
                return Outcome::LOST;
            }
            HandleValue(value);
        } catch (const std::exception& e) {
            TIV_LOGE("A control message was dropped, device=%d: %s", devIndexId, e.what());
        }
    } while (!IsQuit());
    return Outcome::FINISHED;
}

// A packet's own length comes from the peer: it is believed only as far as bytes arrived.
bool Receiver::ReceiveValue(transport::KbxTransport& session, std::string& value) {
    PacketHolder holder(session);
    const int received = session.RecvPacket(&holder.packet);
    if (received < 0 || holder.packet == nullptr) {
        return false;
    }
    TIV_LOGI("DeviceOnHost(%d) Receiver message size %d", devIdOnHost, received);
    const size_t arrived = static_cast<size_t>(received);
    const size_t room = arrived > IDE_TLV_HEADER_LEN ? arrived - IDE_TLV_HEADER_LEN : 0;
    value.assign(holder.packet->value, std::min<size_t>(holder.packet->len, room));
    return true;
}

void Receiver::HandleValue(const std::string& value) {
    msgDispatcher->OnNewMessage(message::Codec::DecodeMessage(value));
}

void Receiver::EndLostSession(const std::shared_ptr<transport::ITransport>& session) {
    TIV_LOGW("devIdOnHost(%d) Failed to recv packet from host", devIdOnHost);
    try {
        TaskManager::Instance().ConnectionReset(session);
    } catch (const std::exception& e) {
        TIV_LOGE("Ending the tasks of a lost session failed, device=%d: %s", devIndexId, e.what());
    }
    SetQuit();
}

}  // namespace analysis::rokt::device

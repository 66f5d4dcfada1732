// One message session between a host and a device.
#include "soft_driver/hdc_session.h"

#include <endian.h>
#include <sys/uio.h>

#include <array>
#include <utility>

#include "soft_driver/exports.h"
#include "soft_driver/hdc_message.h"
#include "soft_driver/notices.h"

namespace tiv::soft_driver {

HdcSession::HdcSession(FileDescriptor fd, SessionAttributes attributes, uint32_t segmentBytes,
                       uint32_t stallLimitMs, ClientSlot slot)
    : attributes_(attributes),
      segmentBytes_(segmentBytes),
      stallLimitMs_(stallLimitMs),
      socket_(std::make_shared<LinkSocket>(std::move(fd))),
      slot_(std::move(slot)),
      reader_(segmentBytes) {}

std::shared_ptr<LinkSocket> HdcSession::Socket() {
    MutexLock lock(socketMutex_);
    return socket_;
}

void HdcSession::End() {
    std::shared_ptr<LinkSocket> socket;
    {
        MutexLock lock(socketMutex_);
        socket.swap(socket_);
    }
    if (socket != nullptr) {
        socket->ShutDown();
    }
}

void HdcSession::Close() {
    End();
    MutexLock lock(socketMutex_);
    slot_.Release();
}

int32_t HdcSession::Send(const HdcMessage* message, bool wait) {
    if (wait) {
        sendMutex_.lock();
    } else if (!sendMutex_.try_lock()) {
        return Fail(EAGAIN, HDC_ERR_NO_DATA);
    }
    const int32_t result = SendLocked(message, wait);
    const int saved = errno;
    sendMutex_.unlock();
    errno = saved;
    return result;
}

int32_t HdcSession::FailSend(int error) {
    End();
    return Fail(error);
}

int32_t HdcSession::SendLocked(const HdcMessage* message, bool wait) {
    const std::shared_ptr<LinkSocket> socket = Socket();
    if (socket == nullptr) {
        return Fail(EPIPE);
    }
    int error = 0;
    if (message == nullptr || !message->HasAdded()) {
        error = EINVAL;
    } else if (static_cast<uint32_t>(message->AddedBytes()) > segmentBytes_) {
        error = EMSGSIZE;
    }
    if (error != 0) {
        return wait ? FailSend(error) : Fail(error);
    }
    uint32_t length = htole32(static_cast<uint32_t>(message->AddedBytes()));
    std::array<iovec, 2> parts{
        {{&length, sizeof(length)},
         {message->AddedData(), static_cast<size_t>(message->AddedBytes())}}};
    switch (socket->Send(parts.data(), parts.size(), wait, stallLimitMs_)) {
        case SendOutcome::SENT:
            return 0;
        case SendOutcome::WOULD_BLOCK:
            return Fail(EAGAIN, HDC_ERR_NO_DATA);
        case SendOutcome::FAILED:
            break;
    }
    return FailSend(errno);
}

int32_t HdcSession::Receive(HdcMessage& message, bool wait) {
    if (wait) {
        receiveMutex_.lock();
    } else if (!receiveMutex_.try_lock()) {
        return Fail(EAGAIN, HDC_ERR_NO_DATA);
    }
    const int32_t result = ReceiveLocked(message, wait);
    const int saved = errno;
    receiveMutex_.unlock();
    errno = saved;
    return result;
}

int32_t HdcSession::ReceiveLocked(HdcMessage& message, bool wait) {
    const std::shared_ptr<LinkSocket> socket = Socket();
    if (socket == nullptr) {
        return Fail(ECONNRESET, HDC_ERR_CLOSED);
    }
    message.Reuse();
    switch (reader_.Read(*socket, message.Received(), wait)) {
        case ReadOutcome::MESSAGE:
            message.MarkReceived();
            return 0;
        case ReadOutcome::WOULD_BLOCK:
            return Fail(EAGAIN, HDC_ERR_NO_DATA);
        case ReadOutcome::NO_MEMORY:
            return Fail(ENOMEM);
        case ReadOutcome::TOO_LONG:
            Warn(
                "session closed: device=%u: the far end declared a message of %u bytes, segment "
                "is %u",
                attributes_.deviceId, reader_.DeclaredBytes(), segmentBytes_);
            break;
        case ReadOutcome::CLOSED:
            break;
    }
    End();
    return Fail(ECONNRESET, HDC_ERR_CLOSED);
}

}  // namespace tiv::soft_driver

// One message session between a host and a device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/mutex.h"
#include "soft_driver/frame_reader.h"
#include "soft_driver/hdc_client.h"
#include "soft_driver/link_socket.h"
#include "soft_driver/message_buffer.h"

namespace tiv::soft_driver {

class HdcMessage;

struct SessionAttributes {
    uint32_t deviceId = 0;          // logical id of the listening server
    int32_t virtualFunctionId = 0;  // other than 0: the far end sits in a container
    int32_t peerPid = 0;            // the far end's process; 0 when it lies outside this namespace
};

// A session is open until one of three things ends it: Close, a blocking send that failed, or the
// end of the stream. From then on sends fail and receives give 25. The socket is shared by the
// calls that are inside; the descriptor goes back when the last of them has left, the object when
// its handle is closed.
//
// A message that arrived proves that every message sent before it arrived: a failed send never
// leaves a session on which a later one could succeed.
//
// Any thread. Messages of concurrent senders do not mix; one receiver waits for the other.
class HdcSession {
 public:
    HdcSession(FileDescriptor fd, SessionAttributes attributes, uint32_t segmentBytes,
               uint32_t stallLimitMs, ClientSlot slot);
    HdcSession(const HdcSession&) = delete;
    HdcSession& operator=(const HdcSession&) = delete;

    // Sends the message's buffer. 0; -1 with errno set, and the session has ended when `wait` is
    // true; HDC_ERR_NO_DATA when `wait` is false and there is no room at the moment.
    [[nodiscard]] int32_t Send(const HdcMessage* message, bool wait);

    // Receives one message. 0; HDC_ERR_CLOSED; HDC_ERR_NO_DATA when `wait` is false and no whole
    // message is there; -1 with errno ENOMEM, and the message can be read again.
    [[nodiscard]] int32_t Receive(HdcMessage& message, bool wait);

    // Wakes every blocked call. The far end reads what was sent, then the end.
    void Close();

    [[nodiscard]] const SessionAttributes& Attributes() const { return attributes_; }
    [[nodiscard]] const std::shared_ptr<BufferShelf>& Shelf() const { return shelf_; }

 private:
    [[nodiscard]] std::shared_ptr<LinkSocket> Socket() EXCLUDES(socketMutex_);
    void End() EXCLUDES(socketMutex_);
    [[nodiscard]] int32_t SendLocked(const HdcMessage* message, bool wait) REQUIRES(sendMutex_);
    [[nodiscard]] int32_t ReceiveLocked(HdcMessage& message, bool wait) REQUIRES(receiveMutex_);
    [[nodiscard]] int32_t FailSend(int error);

    const SessionAttributes attributes_;
    const uint32_t segmentBytes_;
    const uint32_t stallLimitMs_;
    const std::shared_ptr<BufferShelf> shelf_ = std::make_shared<BufferShelf>();

    Mutex socketMutex_;
    std::shared_ptr<LinkSocket> socket_ GUARDED_BY(socketMutex_);  // null once ended
    ClientSlot slot_ GUARDED_BY(socketMutex_);

    Mutex sendMutex_;
    Mutex receiveMutex_;
    FrameReader reader_ GUARDED_BY(receiveMutex_);
};

}  // namespace tiv::soft_driver

// A control or data session in memory, whose far end is the test.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "hdc/i_transport.h"
#include "platform/mutex.h"

namespace tiv::test {

// Reads what the test pushed, records what the product sends, and blocks like the real one.
// Packets are exactly as long as what arrived, so that a read behind their end is seen by the
// address sanitizer. Thread-safe.
class MemoryTransport : public analysis::rokt::transport::KbxTransport {
 public:
    MemoryTransport() = default;
    ~MemoryTransport() override;

    int SendBuffer(const void* buffer, int length) override;
    int SendBuffer(const std::shared_ptr<analysis::rokt::ProfileFileChunk>& chunk) override;
    int CloseSession() override;
    int SendKbxBuffer(const void* packet, int length) override;
    int RecvPacket(IdeTlvReq** packet) override;
    int DestroyPacket(IdeTlvReq* packet) override;

    // One packet with this value.
    void Push(const std::string& value);
    // A packet that claims `len` bytes and brings `value`; RecvPacket gives `result` when it is
    // set.
    void PushPacket(uint32_t len, const std::string& value, std::optional<int> result = {});
    // RecvPacket succeeds once with `result` and gives no packet.
    void PushNoPacket(int result);
    // The far end closes: what was pushed is still read.
    void ClosePeer();

    // Raw sends as they were, chunks as "chunk", file name and extra information.
    std::vector<std::string> Sent() const;
    bool WaitForSent(size_t count);
    // True when the product has read everything and waits for more.
    bool WaitForIdleReader();
    // What sends give in place of success.
    void SetSendResult(int result);
    // Called with each send, before it is recorded; without a lock held.
    void OnSend(std::function<void()> hook);
    // While held, sends block, also over a close.
    void HoldSends(bool held);
    bool WaitForHeldSend();
    int Closes() const;
    bool Closed() const { return Closes() > 0; }
    // Packets handed out and not given back.
    int LivePackets() const;

 private:
    struct Packet {
        IdeTlvReq* request;
        int result;
    };

    int Record(std::string sent, int success);

    mutable tiv::Mutex mutex_;
    tiv::CondVar changed_;
    std::deque<Packet> unread_ GUARDED_BY(mutex_);
    std::vector<std::string> sent_ GUARDED_BY(mutex_);
    std::optional<int> sendResult_ GUARDED_BY(mutex_);
    std::function<void()> onSend_ GUARDED_BY(mutex_);
    bool peerClosed_ GUARDED_BY(mutex_) = false;
    bool holdSends_ GUARDED_BY(mutex_) = false;
    bool sendHeld_ GUARDED_BY(mutex_) = false;
    bool readerWaits_ GUARDED_BY(mutex_) = false;
    int closes_ GUARDED_BY(mutex_) = 0;
    int livePackets_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tiv::test

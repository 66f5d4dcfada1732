// The queues behind a session in memory.
#include "device/memory_transport.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tiv::test {
namespace {

constexpr auto PATIENCE = std::chrono::seconds(10);

template <class Condition>
bool WaitFor(tiv::Mutex& mutex, tiv::CondVar& changed, Condition condition) REQUIRES(mutex) {
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        if (!changed.WaitUntil(mutex, deadline)) {
            return condition();
        }
    }
    return true;
}

}  // namespace

MemoryTransport::~MemoryTransport() {
    for (const Packet& packet : unread_) {
        std::free(packet.request);
    }
}

int MemoryTransport::Record(std::string sent, int success) {
    std::function<void()> hook;
    {
        MutexLock lock(mutex_);
        hook = onSend_;
    }
    if (hook) {
        hook();
    }
    MutexLock lock(mutex_);
    while (holdSends_) {
        sendHeld_ = true;
        changed_.NotifyAll();
        changed_.Wait(mutex_);
    }
    sendHeld_ = false;
    if (closes_ > 0 || peerClosed_) {
        return -1;
    }
    sent_.push_back(std::move(sent));
    changed_.NotifyAll();
    return sendResult_.value_or(success);
}

int MemoryTransport::SendBuffer(const void* buffer, int length) {
    return Record(std::string(static_cast<const char*>(buffer), static_cast<size_t>(length)),
                  length);
}

int MemoryTransport::SendBuffer(const std::shared_ptr<analysis::rokt::ProfileFileChunk>& chunk) {
    return Record("chunk " + chunk->fileName + " " + chunk->extraInfo, 0);
}

int MemoryTransport::SendKbxBuffer(const void*, int) { return 0; }

int MemoryTransport::CloseSession() {
    MutexLock lock(mutex_);
    ++closes_;
    changed_.NotifyAll();
    return 0;
}

int MemoryTransport::RecvPacket(IdeTlvReq** packet) {
    MutexLock lock(mutex_);
    while (unread_.empty() && closes_ == 0 && !peerClosed_) {
        readerWaits_ = true;
        changed_.NotifyAll();
        changed_.Wait(mutex_);
    }
    readerWaits_ = false;
    if (unread_.empty() || closes_ > 0) {
        return -1;
    }
    const Packet next = unread_.front();
    unread_.pop_front();
    livePackets_ += next.request != nullptr ? 1 : 0;
    *packet = next.request;
    return next.result;
}

int MemoryTransport::DestroyPacket(IdeTlvReq* packet) {
    std::free(packet);
    MutexLock lock(mutex_);
    --livePackets_;
    return 0;
}

void MemoryTransport::Push(const std::string& value) {
    PushPacket(static_cast<uint32_t>(value.size()), value);
}

void MemoryTransport::PushPacket(uint32_t len, const std::string& value,
                                 std::optional<int> result) {
    const size_t arrived = IDE_TLV_HEADER_LEN + value.size();
    auto* request = static_cast<IdeTlvReq*>(std::calloc(1, arrived));
    request->type = IDE_PROFILING_REQ;
    request->len = len;
    std::memcpy(request->value, value.data(), value.size());
    MutexLock lock(mutex_);
    readerWaits_ = false;
    unread_.push_back({request, result.value_or(static_cast<int>(arrived))});
    changed_.NotifyAll();
}

void MemoryTransport::PushNoPacket(int result) {
    MutexLock lock(mutex_);
    readerWaits_ = false;
    unread_.push_back({nullptr, result});
    changed_.NotifyAll();
}

void MemoryTransport::ClosePeer() {
    MutexLock lock(mutex_);
    peerClosed_ = true;
    changed_.NotifyAll();
}

std::vector<std::string> MemoryTransport::Sent() const {
    MutexLock lock(mutex_);
    return sent_;
}

bool MemoryTransport::WaitForSent(size_t count) {
    MutexLock lock(mutex_);
    return WaitFor(mutex_, changed_,
                   [&]() NO_THREAD_SAFETY_ANALYSIS { return sent_.size() >= count; });
}

bool MemoryTransport::WaitForIdleReader() {
    MutexLock lock(mutex_);
    return WaitFor(mutex_, changed_,
                   [&]() NO_THREAD_SAFETY_ANALYSIS { return unread_.empty() && readerWaits_; });
}

void MemoryTransport::SetSendResult(int result) {
    MutexLock lock(mutex_);
    sendResult_ = result;
}

void MemoryTransport::OnSend(std::function<void()> hook) {
    MutexLock lock(mutex_);
    onSend_ = std::move(hook);
}

void MemoryTransport::HoldSends(bool held) {
    MutexLock lock(mutex_);
    holdSends_ = held;
    changed_.NotifyAll();
}

bool MemoryTransport::WaitForHeldSend() {
    MutexLock lock(mutex_);
    return WaitFor(mutex_, changed_, [&]() NO_THREAD_SAFETY_ANALYSIS { return sendHeld_; });
}

int MemoryTransport::Closes() const {
    MutexLock lock(mutex_);
    return closes_;
}

int MemoryTransport::LivePackets() const {
    MutexLock lock(mutex_);
    return livePackets_;
}

}  // namespace tiv::test

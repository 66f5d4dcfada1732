// Double of the driver: every function in memory, each of them replaceable.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "support/driver_functions.h"

namespace tiv::test {

// One message of the driver: its buffers in order; an absent one is a null buffer.
using DriverMessage = std::vector<std::optional<std::string>>;

// What one call of prof_drv_start handed over.
struct DriverStart {
    uint32_t devId;
    uint32_t channelId;
    ProfStartPara para;    // its userData must not be followed any more
    std::string userData;  // copy of what it pointed to
};

// A driver in memory. Sessions are queues of scripted messages and a list of sent ones, channels
// are queues of bytes.
//
// The members inherited from DriverFunctions are what the C functions call; they start with the
// in-memory behaviour and a test may replace each. `calls` records every call with its arguments
// and the calling thread's name, and gives results by number of call (`calls.Return(...)`).
//
// Handles are rising numbers and are never reused; a stale one gives -1 from every function.
// Thread-safe; lives until the process ends.
class FakeDriver : public DriverFunctions {
 public:
    static FakeDriver& Instance();

    // Back to the first state: no session, one device (0), default answers, no faults, no record.
    void Reset() EXCLUDES(mutex_);

    // --- sessions ---
    // An open session that nobody has to accept or connect.
    HDC_SESSION NewSession(int32_t deviceId = 0, int32_t vfId = 0) EXCLUDES(mutex_);
    // Hands a new session to the next drvHdcSessionAccept, on whichever server.
    HDC_SESSION QueueAccept(int32_t deviceId = 0, int32_t vfId = 0) EXCLUDES(mutex_);
    // Scripts what the next halHdcRecv reads: a message of one buffer, or of several.
    void PushMessage(HDC_SESSION session, const std::string& bytes) EXCLUDES(mutex_);
    void PushBuffers(HDC_SESSION session, DriverMessage message) EXCLUDES(mutex_);
    // The far end closes: what was pushed is still read, then 25; sends fail.
    void ClosePeer(HDC_SESSION session) EXCLUDES(mutex_);
    void SetSessionAttr(HDC_SESSION session, int32_t attr, int32_t value) EXCLUDES(mutex_);
    // While stalled, halHdcSend blocks until the stall ends or the session is closed.
    void StallSends(bool stalled) EXCLUDES(mutex_);
    // Messages sent on a session, byte for byte (also after its close); several buffers are joined.
    std::vector<std::string> Sent(HDC_SESSION session) const EXCLUDES(mutex_);
    // False when not `count` messages were sent within ten seconds.
    bool WaitForSent(HDC_SESSION session, size_t count) EXCLUDES(mutex_);
    bool IsClosed(HDC_SESSION session) const EXCLUDES(mutex_);
    // False when it was not closed within ten seconds.
    bool WaitForClosed(HDC_SESSION session) EXCLUDES(mutex_);
    // Messages scripted and not read yet.
    size_t Unread(HDC_SESSION session) const EXCLUDES(mutex_);
    size_t OpenSessions() const EXCLUDES(mutex_);
    // Allocated and not freed.
    size_t OpenMessages() const EXCLUDES(mutex_);
    size_t OpenServers() const EXCLUDES(mutex_);
    size_t OpenClients() const EXCLUDES(mutex_);
    // Session made by the last connect call.
    HDC_SESSION LastConnected() const EXCLUDES(mutex_);
    void SetMaxSegment(uint32_t bytes) EXCLUDES(mutex_);  // 524288 at first

    // --- devices ---
    void SetDevices(std::vector<uint32_t> logicalIds) EXCLUDES(mutex_);
    // Identity unless set.
    void SetPhyId(uint32_t logicalId, uint32_t phyId) EXCLUDES(mutex_);
    // Answer of halGetDeviceInfo for every device; 65534 for what isn't set. (0, 1) is type 5 at
    // first.
    void SetDeviceInfo(int32_t moduleType, int32_t infoType, int64_t value) EXCLUDES(mutex_);
    void ForgetDeviceInfo(int32_t moduleType, int32_t infoType) EXCLUDES(mutex_);
    void SetApiVersion(int32_t version) EXCLUDES(mutex_);  // 465157 at first
    void SetPlatformInfo(uint32_t side) EXCLUDES(mutex_);  // 0 at first

    // --- channels ---
    // Channel ids of a device's list; channel 8 alone unless set.
    void SetChannels(uint32_t devId, const std::vector<uint32_t>& ids) EXCLUDES(mutex_);
    void SetChannelList(uint32_t devId, const ProfDrvChannelList& list) EXCLUDES(mutex_);
    // Makes bytes readable and reports the channel; before its start they wait for it.
    void PushChannelData(uint32_t devId, uint32_t channelId, const std::string& bytes)
        EXCLUDES(mutex_);
    // Bytes that only halProfDataFlush makes readable.
    void HoldBackChannelData(uint32_t devId, uint32_t channelId, const std::string& bytes)
        EXCLUDES(mutex_);
    // Reports a channel at the next poll, with or without data.
    void NotifyChannel(uint32_t devId, uint32_t channelId) EXCLUDES(mutex_);
    size_t PendingChannelBytes(uint32_t devId, uint32_t channelId) const EXCLUDES(mutex_);
    bool ChannelOpen(uint32_t devId, uint32_t channelId) const EXCLUDES(mutex_);
    std::vector<DriverStart> Starts() const EXCLUDES(mutex_);

 private:
    struct Session {
        std::deque<DriverMessage> unread;
        std::vector<std::string> sent;
        std::map<int32_t, int32_t> attributes;
        bool peerClosed = false;
        bool closed = false;
    };
    struct Server {
        int32_t deviceId = 0;
        int32_t serviceType = 0;
    };
    struct Message {
        struct Buffer {
            std::string own;           // of a received message
            char* borrowed = nullptr;  // of a message to send
            int32_t length = 0;
            bool null = false;
        };
        std::vector<Buffer> buffers;
    };
    struct Channel {
        std::string pending;
        std::string heldBack;
        bool open = false;
        bool notified = false;
    };
    using ChannelKey = std::pair<uint32_t, uint32_t>;

    FakeDriver();
    void InstallHdc();
    void InstallMessages();
    void InstallDevices();
    void InstallChannels();
    uintptr_t NewHandle() REQUIRES(mutex_) { return ++lastHandle_; }
    Session* FindSession(HDC_SESSION session) REQUIRES(mutex_);
    Message* FindMessage(HDC_MSG msg) REQUIRES(mutex_);
    HDC_SESSION MakeSession(int32_t deviceId, int32_t vfId) REQUIRES(mutex_);
    int32_t Connect(int32_t peerDevId, HDC_CLIENT client, HDC_SESSION* session) EXCLUDES(mutex_);
    int32_t Accept(HDC_SERVER server, HDC_SESSION* session) EXCLUDES(mutex_);
    int32_t Receive(HDC_SESSION session, HDC_MSG msg, uint64_t flag, int32_t* count)
        EXCLUDES(mutex_);
    int32_t Send(HDC_SESSION session, HDC_MSG msg) EXCLUDES(mutex_);
    int32_t CopyIds(uint32_t* ids, uint32_t len) EXCLUDES(mutex_);
    int32_t Start(uint32_t devId, uint32_t channelId, ProfStartPara* para) EXCLUDES(mutex_);
    int32_t Read(uint32_t devId, uint32_t channelId, char* buf, uint32_t len) EXCLUDES(mutex_);
    int32_t Poll(ProfPollPair* out, int32_t num, int32_t timeoutSec) EXCLUDES(mutex_);
    int32_t Flush(uint32_t devId, uint32_t channelId, uint32_t* size) EXCLUDES(mutex_);
    bool AnyChannelOpen() const REQUIRES(mutex_);
    int32_t TakeNotified(ProfPollPair* out, int32_t num) REQUIRES(mutex_);

    mutable Mutex mutex_;
    CondVar changed_;
    uintptr_t lastHandle_ GUARDED_BY(mutex_) = 0x1000;
    std::map<uintptr_t, Session> sessions_ GUARDED_BY(mutex_);
    std::map<uintptr_t, Server> servers_ GUARDED_BY(mutex_);
    std::map<uintptr_t, int32_t> clients_ GUARDED_BY(mutex_);
    std::map<uintptr_t, Message> messages_ GUARDED_BY(mutex_);
    std::deque<HDC_SESSION> toAccept_ GUARDED_BY(mutex_);
    HDC_SESSION lastConnected_ GUARDED_BY(mutex_) = nullptr;
    bool stalled_ GUARDED_BY(mutex_) = false;
    uint32_t maxSegment_ GUARDED_BY(mutex_) = 524288;
    std::vector<uint32_t> devices_ GUARDED_BY(mutex_);
    std::map<uint32_t, uint32_t> phyIds_ GUARDED_BY(mutex_);
    std::map<std::pair<int32_t, int32_t>, int64_t> deviceInfo_ GUARDED_BY(mutex_);
    int32_t apiVersion_ GUARDED_BY(mutex_) = 0;
    uint32_t platformInfo_ GUARDED_BY(mutex_) = 0;
    std::map<uint32_t, ProfDrvChannelList> channelLists_ GUARDED_BY(mutex_);
    std::map<ChannelKey, Channel> channels_ GUARDED_BY(mutex_);
    std::vector<DriverStart> starts_ GUARDED_BY(mutex_);
};

}  // namespace tiv::test

// Double of the driver: the parts that scripts and tests see.
#include "support/fake_driver.h"

#include <algorithm>
#include <utility>

#include "support/before_every_test.h"

namespace tiv::test {

namespace {

constexpr std::chrono::seconds WAIT_LIMIT{10};
constexpr int32_t FIRST_API_VERSION = 465157;
constexpr int64_t FIRST_CHIP = 5 << 8;

uintptr_t Key(const void* handle) { return reinterpret_cast<uintptr_t>(handle); }

[[maybe_unused]] const bool fresh = BeforeEveryTest([] { FakeDriver::Instance().Reset(); });

}  // namespace

FakeDriver& FakeDriver::Instance() {
    static FakeDriver& driver = *std::unique_ptr<FakeDriver>(new FakeDriver).release();
    return driver;
}

DriverFunctions& DriverBehindTheInterface() { return FakeDriver::Instance(); }

FakeDriver::FakeDriver() { Reset(); }

void FakeDriver::Reset() {
    InstallHdc();
    InstallDevices();
    InstallChannels();
    calls.ClearFaults();
    calls.ClearCalls();
    calls.OnCall(nullptr);
    MutexLock lock(mutex_);
    sessions_.clear();
    servers_.clear();
    clients_.clear();
    messages_.clear();
    toAccept_.clear();
    lastConnected_ = nullptr;
    stalled_ = false;
    maxSegment_ = 524288;
    devices_ = {0};
    phyIds_.clear();
    deviceInfo_ = {{{0, 1}, FIRST_CHIP}};
    apiVersion_ = FIRST_API_VERSION;
    platformInfo_ = 0;
    channelLists_.clear();
    channels_.clear();
    starts_.clear();
    changed_.NotifyAll();
}

HDC_SESSION FakeDriver::MakeSession(int32_t deviceId, int32_t vfId) {
    const uintptr_t handle = NewHandle();
    Session& session = sessions_[handle];
    session.attributes = {{HDC_ATTR_DEVICE_ID, deviceId}, {HDC_ATTR_VF_ID, vfId}};
    return reinterpret_cast<HDC_SESSION>(handle);
}

FakeDriver::Session* FakeDriver::FindSession(HDC_SESSION session) {
    const auto found = sessions_.find(Key(session));
    return found == sessions_.end() ? nullptr : &found->second;
}

HDC_SESSION FakeDriver::NewSession(int32_t deviceId, int32_t vfId) {
    MutexLock lock(mutex_);
    return MakeSession(deviceId, vfId);
}

HDC_SESSION FakeDriver::QueueAccept(int32_t deviceId, int32_t vfId) {
    MutexLock lock(mutex_);
    const HDC_SESSION session = MakeSession(deviceId, vfId);
    toAccept_.push_back(session);
    changed_.NotifyAll();
    return session;
}

void FakeDriver::PushMessage(HDC_SESSION session, const std::string& bytes) {
    PushBuffers(session, {bytes});
}

void FakeDriver::PushBuffers(HDC_SESSION session, DriverMessage message) {
    MutexLock lock(mutex_);
    if (Session* found = FindSession(session)) {
        found->unread.push_back(std::move(message));
    }
    changed_.NotifyAll();
}

void FakeDriver::ClosePeer(HDC_SESSION session) {
    MutexLock lock(mutex_);
    if (Session* found = FindSession(session)) {
        found->peerClosed = true;
    }
    changed_.NotifyAll();
}

void FakeDriver::SetSessionAttr(HDC_SESSION session, int32_t attr, int32_t value) {
    MutexLock lock(mutex_);
    if (Session* found = FindSession(session)) {
        found->attributes[attr] = value;
    }
}

void FakeDriver::StallSends(bool stalled) {
    MutexLock lock(mutex_);
    stalled_ = stalled;
    changed_.NotifyAll();
}

std::vector<std::string> FakeDriver::Sent(HDC_SESSION session) const {
    MutexLock lock(mutex_);
    const auto found = sessions_.find(Key(session));
    return found == sessions_.end() ? std::vector<std::string>() : found->second.sent;
}

bool FakeDriver::WaitForSent(HDC_SESSION session, size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + WAIT_LIMIT;
    MutexLock lock(mutex_);
    while (sessions_[Key(session)].sent.size() < count) {
        if (!changed_.WaitUntil(mutex_, deadline)) {
            return sessions_[Key(session)].sent.size() >= count;
        }
    }
    return true;
}

bool FakeDriver::IsClosed(HDC_SESSION session) const {
    MutexLock lock(mutex_);
    const auto found = sessions_.find(Key(session));
    return found == sessions_.end() || found->second.closed;
}

bool FakeDriver::WaitForClosed(HDC_SESSION session) {
    const auto deadline = std::chrono::steady_clock::now() + WAIT_LIMIT;
    MutexLock lock(mutex_);
    while (!sessions_[Key(session)].closed) {
        if (!changed_.WaitUntil(mutex_, deadline)) {
            return sessions_[Key(session)].closed;
        }
    }
    return true;
}

size_t FakeDriver::Unread(HDC_SESSION session) const {
    MutexLock lock(mutex_);
    const auto found = sessions_.find(Key(session));
    return found == sessions_.end() ? 0 : found->second.unread.size();
}

size_t FakeDriver::OpenSessions() const {
    MutexLock lock(mutex_);
    return static_cast<size_t>(std::count_if(sessions_.begin(), sessions_.end(),
                                             [](const auto& row) { return !row.second.closed; }));
}

size_t FakeDriver::OpenMessages() const {
    MutexLock lock(mutex_);
    return messages_.size();
}

size_t FakeDriver::OpenServers() const {
    MutexLock lock(mutex_);
    return servers_.size();
}

size_t FakeDriver::OpenClients() const {
    MutexLock lock(mutex_);
    return clients_.size();
}

HDC_SESSION FakeDriver::LastConnected() const {
    MutexLock lock(mutex_);
    return lastConnected_;
}

void FakeDriver::SetMaxSegment(uint32_t bytes) {
    MutexLock lock(mutex_);
    maxSegment_ = bytes;
}

}  // namespace tiv::test

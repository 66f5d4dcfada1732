// Double of the driver: message sessions in memory.
#include <algorithm>
#include <utility>

#include "support/fake_driver.h"

namespace tiv::test {

namespace {

uintptr_t Key(const void* handle) { return reinterpret_cast<uintptr_t>(handle); }

int32_t Refuse(int error) {
    errno = error;
    return -1;
}

}  // namespace

FakeDriver::Message* FakeDriver::FindMessage(HDC_MSG msg) {
    const auto found = messages_.find(Key(msg));
    return found == messages_.end() ? nullptr : &found->second;
}

int32_t FakeDriver::Accept(HDC_SERVER server, HDC_SESSION* session) {
    MutexLock lock(mutex_);
    while (servers_.count(Key(server)) != 0 && toAccept_.empty()) {
        changed_.Wait(mutex_);
    }
    if (servers_.count(Key(server)) == 0) {
        return Refuse(EBADF);
    }
    *session = toAccept_.front();
    toAccept_.pop_front();
    return 0;
}

int32_t FakeDriver::Connect(int32_t peerDevId, HDC_CLIENT client, HDC_SESSION* session) {
    MutexLock lock(mutex_);
    if (clients_.count(Key(client)) == 0) {
        return Refuse(EBADF);
    }
    lastConnected_ = MakeSession(peerDevId, 0);
    *session = lastConnected_;
    return 0;
}

int32_t FakeDriver::Receive(HDC_SESSION session, HDC_MSG msg, uint64_t flag, int32_t* count) {
    MutexLock lock(mutex_);
    Session* from = FindSession(session);
    while (from != nullptr && !from->closed && !from->peerClosed && from->unread.empty()) {
        if (flag == HDC_FLAG_NO_WAIT) {
            return HDC_ERR_NO_DATA;
        }
        changed_.Wait(mutex_);
        from = FindSession(session);
    }
    Message* into = FindMessage(msg);
    if (from == nullptr || into == nullptr) {
        return Refuse(EBADF);
    }
    if (from->closed || from->unread.empty()) {
        return HDC_ERR_CLOSED;
    }
    into->buffers.clear();
    for (std::optional<std::string>& bytes : from->unread.front()) {
        Message::Buffer buffer;
        buffer.null = !bytes.has_value();
        buffer.own = std::move(bytes).value_or("");
        buffer.length = static_cast<int32_t>(buffer.own.size());
        into->buffers.push_back(std::move(buffer));
    }
    from->unread.pop_front();
    *count = static_cast<int32_t>(into->buffers.size());
    changed_.NotifyAll();
    return 0;
}

int32_t FakeDriver::Send(HDC_SESSION session, HDC_MSG msg) {
    MutexLock lock(mutex_);
    Session* to = FindSession(session);
    while (stalled_ && to != nullptr && !to->closed && !to->peerClosed) {
        changed_.Wait(mutex_);
        to = FindSession(session);
    }
    const Message* from = FindMessage(msg);
    if (to == nullptr || from == nullptr || to->closed || to->peerClosed) {
        return Refuse(EPIPE);
    }
    std::string bytes;
    for (const Message::Buffer& buffer : from->buffers) {
        if (buffer.borrowed != nullptr && buffer.length > 0) {
            bytes.append(buffer.borrowed, static_cast<size_t>(buffer.length));
        }
    }
    if (bytes.size() > maxSegment_) {
        return Refuse(EMSGSIZE);
    }
    to->sent.push_back(std::move(bytes));
    changed_.NotifyAll();
    return 0;
}

void FakeDriver::InstallHdc() {
    drvHdcClientCreate = [this](HDC_CLIENT* client, int32_t maxSessions, int32_t, int32_t) {
        MutexLock lock(mutex_);
        const uintptr_t handle = NewHandle();
        clients_[handle] = maxSessions;
        *client = reinterpret_cast<HDC_CLIENT>(handle);
        return 0;
    };
    drvHdcClientDestroy = [this](HDC_CLIENT client) {
        MutexLock lock(mutex_);
        return clients_.erase(Key(client)) == 1 ? 0 : Refuse(EBADF);
    };
    drvHdcServerCreate = [this](int32_t device, int32_t service, HDC_SERVER* server) {
        MutexLock lock(mutex_);
        const uintptr_t handle = NewHandle();
        servers_[handle] = {device, service};
        *server = reinterpret_cast<HDC_SERVER>(handle);
        return 0;
    };
    drvHdcServerDestroy = [this](HDC_SERVER server) {
        MutexLock lock(mutex_);
        changed_.NotifyAll();
        return servers_.erase(Key(server)) == 1 ? 0 : Refuse(EBADF);
    };
    drvHdcSessionAccept = [this](HDC_SERVER server, HDC_SESSION* session) {
        return Accept(server, session);
    };
    drvHdcSessionConnect = [this](int32_t, int32_t device, HDC_CLIENT client,
                                  HDC_SESSION* session) {
        return Connect(device, client, session);
    };
    halHdcSessionConnectEx = [this](int32_t, int32_t device, int32_t, HDC_CLIENT client,
                                    HDC_SESSION* session) {
        return Connect(device, client, session);
    };
    drvHdcSetSessionReference = [this](HDC_SESSION session) {
        MutexLock lock(mutex_);
        const Session* found = FindSession(session);
        return found != nullptr && !found->closed ? 0 : Refuse(EBADF);
    };
    drvHdcSessionClose = [this](HDC_SESSION session) {
        MutexLock lock(mutex_);
        Session* found = FindSession(session);
        if (found == nullptr || found->closed) {
            return Refuse(EBADF);
        }
        found->closed = true;
        changed_.NotifyAll();
        return 0;
    };
    halHdcGetSessionAttr = [this](HDC_SESSION session, int32_t attr, int32_t* value) {
        MutexLock lock(mutex_);
        const Session* found = FindSession(session);
        if (found == nullptr || found->closed || found->attributes.count(attr) == 0) {
            return Refuse(EBADF);
        }
        *value = found->attributes.at(attr);
        return 0;
    };
    InstallMessages();
}

void FakeDriver::InstallMessages() {
    drvHdcAllocMsg = [this](HDC_SESSION session, HDC_MSG* msg, int32_t) {
        MutexLock lock(mutex_);
        const Session* found = FindSession(session);
        if (found == nullptr || found->closed) {
            return Refuse(EBADF);
        }
        const uintptr_t handle = NewHandle();
        messages_[handle] = {};
        *msg = reinterpret_cast<HDC_MSG>(handle);
        return 0;
    };
    drvHdcFreeMsg = [this](HDC_MSG msg) {
        MutexLock lock(mutex_);
        return messages_.erase(Key(msg)) == 1 ? 0 : Refuse(EBADF);
    };
    drvHdcReuseMsg = [this](HDC_MSG msg) {
        MutexLock lock(mutex_);
        Message* found = FindMessage(msg);
        if (found == nullptr) {
            return Refuse(EBADF);
        }
        found->buffers.clear();
        return 0;
    };
    drvHdcGetMsgBuffer = [this](HDC_MSG msg, int32_t index, char** buf, int32_t* len) {
        MutexLock lock(mutex_);
        Message* found = FindMessage(msg);
        if (found == nullptr || index < 0 || static_cast<size_t>(index) >= found->buffers.size()) {
            return Refuse(EINVAL);
        }
        Message::Buffer& buffer = found->buffers[static_cast<size_t>(index)];
        char* bytes = buffer.borrowed != nullptr ? buffer.borrowed : buffer.own.data();
        *buf = buffer.null ? nullptr : bytes;
        *len = buffer.length;
        return 0;
    };
    drvHdcAddMsgBuffer = [this](HDC_MSG msg, char* buf, int32_t len) {
        MutexLock lock(mutex_);
        Message* found = FindMessage(msg);
        if (found == nullptr || buf == nullptr || len <= 0) {
            return Refuse(EINVAL);
        }
        Message::Buffer buffer;
        buffer.borrowed = buf;
        buffer.length = len;
        found->buffers.push_back(std::move(buffer));
        return 0;
    };
    halHdcRecv = [this](HDC_SESSION session, HDC_MSG msg, int32_t, uint64_t flag, int32_t* count,
                        uint32_t) { return Receive(session, msg, flag, count); };
    halHdcSend = [this](HDC_SESSION session, HDC_MSG msg, uint64_t, uint32_t) {
        return Send(session, msg);
    };
    drvHdcGetCapacity = [this](HdcCapacity* capacity) {
        MutexLock lock(mutex_);
        capacity->maxSegment = maxSegment_;
        return 0;
    };
}

}  // namespace tiv::test

// The host's side of the link: how many sessions it may hold, and of which service.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "platform/mutex.h"

namespace tiv::soft_driver {

// Counts sessions. Any thread; outlives its handle while sessions hold slots.
class HdcClient {
 public:
    HdcClient(uint32_t serviceType, int32_t maxSessions)
        : serviceType_(serviceType), maxSessions_(maxSessions) {}

    [[nodiscard]] uint32_t ServiceType() const { return serviceType_; }

    [[nodiscard]] bool TakeSlot() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        if (sessions_ >= maxSessions_) {
            return false;
        }
        ++sessions_;
        return true;
    }
    void GiveSlot() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        --sessions_;
    }

 private:
    const uint32_t serviceType_;
    const int32_t maxSessions_;
    Mutex mutex_;
    int32_t sessions_ GUARDED_BY(mutex_) = 0;
};

// One session's place in its client; given back on destruction. Empty for accepted sessions.
class ClientSlot {
 public:
    ClientSlot() = default;
    // Takes a place; IsTaken tells whether there was one.
    explicit ClientSlot(std::shared_ptr<HdcClient> client) {
        if (client->TakeSlot()) {
            client_ = std::move(client);
        }
    }
    ~ClientSlot() { Release(); }
    ClientSlot(ClientSlot&& other) noexcept : client_(std::move(other.client_)) {}
    ClientSlot& operator=(ClientSlot&&) = delete;

    [[nodiscard]] bool IsTaken() const { return client_ != nullptr; }
    void Release() {
        if (client_ != nullptr) {
            client_->GiveSlot();
            client_.reset();
        }
    }

 private:
    std::shared_ptr<HdcClient> client_;
};

}  // namespace tiv::soft_driver

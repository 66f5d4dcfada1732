// One driver message: received bytes, or a view of the caller's bytes to send.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "soft_driver/message_buffer.h"

namespace tiv::soft_driver {

// Holds one buffer at most. Outlives its session: what was received stays readable until the
// message is freed. One thread at a time.
class HdcMessage {
 public:
    explicit HdcMessage(std::shared_ptr<BufferShelf> shelf) : shelf_(std::move(shelf)) {
        shelf_->Take(received_);
    }
    ~HdcMessage() { shelf_->Give(received_); }
    HdcMessage(const HdcMessage&) = delete;
    HdcMessage& operator=(const HdcMessage&) = delete;

    // Empties the message and keeps its memory.
    void Reuse() {
        hasReceived_ = false;
        hasAdded_ = false;
    }

    // Borrows `bytes` at `data` until the next Reuse. False when the message holds something.
    [[nodiscard]] bool Add(char* data, int32_t bytes) {
        if (hasReceived_ || hasAdded_) {
            return false;
        }
        added_ = data;
        addedBytes_ = bytes;
        hasAdded_ = true;
        return true;
    }

    // The buffer of the message. False when it holds none.
    [[nodiscard]] bool Get(char** data, int32_t* bytes) {
        if (hasAdded_) {
            *data = added_;
            *bytes = addedBytes_;
        } else if (hasReceived_) {
            *data = received_.Data();
            *bytes = static_cast<int32_t>(received_.Size());
        }
        return hasAdded_ || hasReceived_;
    }

    // To be filled by a receive, and then marked.
    [[nodiscard]] MessageBuffer& Received() { return received_; }
    void MarkReceived() { hasReceived_ = true; }

    [[nodiscard]] bool HasAdded() const { return hasAdded_; }
    [[nodiscard]] char* AddedData() const { return added_; }
    [[nodiscard]] int32_t AddedBytes() const { return addedBytes_; }

 private:
    const std::shared_ptr<BufferShelf> shelf_;
    MessageBuffer received_;
    bool hasReceived_ = false;
    bool hasAdded_ = false;
    char* added_ = nullptr;
    int32_t addedBytes_ = 0;
};

}  // namespace tiv::soft_driver

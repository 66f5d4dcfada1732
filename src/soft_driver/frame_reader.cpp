// Cuts the byte stream of a session into driver messages.
#include "soft_driver/frame_reader.h"

#include <endian.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "soft_driver/link_socket.h"

namespace tiv::soft_driver {

ReadOutcome FrameReader::OutcomeOf(ssize_t received) {
    return received < 0 && errno == EAGAIN ? ReadOutcome::WOULD_BLOCK : ReadOutcome::CLOSED;
}

ReadOutcome FrameReader::Read(LinkSocket& socket, MessageBuffer& message, bool wait) {
    message.SetSize(0);
    if (!inBody_) {
        const ReadOutcome outcome = ReadLength(socket, wait);
        if (outcome != ReadOutcome::MESSAGE) {
            return outcome;
        }
        if (!message.Reserve(declared_)) {
            return ReadOutcome::NO_MEMORY;
        }
        inBody_ = true;
        arrived_ = 0;
        lengthBytes_ = 0;
    } else {
        message.Swap(stash_);
    }
    const ReadOutcome outcome = ReadBody(socket, message, wait);
    if (outcome == ReadOutcome::WOULD_BLOCK) {
        message.Swap(stash_);
    } else if (outcome == ReadOutcome::MESSAGE) {
        message.SetSize(declared_);
        inBody_ = false;
    }
    return outcome;
}

ReadOutcome FrameReader::ReadLength(LinkSocket& socket, bool wait) {
    while (lengthBytes_ < length_.size()) {
        iovec part{length_.data() + lengthBytes_, length_.size() - lengthBytes_};
        const ssize_t received = socket.Receive(&part, 1, wait);
        if (received <= 0) {
            return OutcomeOf(received);
        }
        lengthBytes_ += static_cast<size_t>(received);
    }
    uint32_t wire = 0;
    memcpy(&wire, length_.data(), sizeof(wire));
    declared_ = le32toh(wire);
    return declared_ > segmentBytes_ ? ReadOutcome::TOO_LONG : ReadOutcome::MESSAGE;
}

ReadOutcome FrameReader::ReadBody(LinkSocket& socket, MessageBuffer& message, bool wait) {
    while (arrived_ < declared_) {
        const size_t missing = declared_ - arrived_;
        std::array<iovec, 2> parts{
            {{message.Data() + arrived_, missing}, {length_.data(), length_.size()}}};
        const ssize_t received = socket.Receive(parts.data(), parts.size(), wait);
        if (received <= 0) {
            return OutcomeOf(received);
        }
        const size_t body = std::min(static_cast<size_t>(received), missing);
        arrived_ += body;
        lengthBytes_ = static_cast<size_t>(received) - body;
    }
    return ReadOutcome::MESSAGE;
}

}  // namespace tiv::soft_driver

// Cuts the byte stream of a session into driver messages.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "soft_driver/message_buffer.h"

namespace tiv::soft_driver {

class LinkSocket;

enum class ReadOutcome { MESSAGE, WOULD_BLOCK, CLOSED, TOO_LONG, NO_MEMORY };

// On the wire a message is its length and its bytes:
//
//   0        4                 4 + length
//   +--------+------------------+
//   | length | message          |
//   +--------+------------------+
//
// `length` is unsigned and little-endian, from 0 to the segment; nothing else is ever sent, and
// there is no greeting.
//
// The kernel fills the caller's buffer. Each receive of a message's bytes also asks for the four
// bytes of the next length, so a stream of full messages costs one system call each; at most
// these four bytes are kept here between messages. A read that may not wait and finds half a
// message leaves that half here for the next read.
//
// One thread at a time.
class FrameReader {
 public:
    explicit FrameReader(uint32_t segmentBytes) : segmentBytes_(segmentBytes) {}

    // Reads one whole message into `message`. CLOSED: the stream ended, cleanly or in the middle
    // of a message. TOO_LONG: the declared length exceeds the segment, and the stream is useless.
    // NO_MEMORY: nothing was lost; the same message is tried again by the next read.
    [[nodiscard]] ReadOutcome Read(LinkSocket& socket, MessageBuffer& message, bool wait);

    [[nodiscard]] uint32_t DeclaredBytes() const { return declared_; }

 private:
    [[nodiscard]] ReadOutcome ReadLength(LinkSocket& socket, bool wait);
    [[nodiscard]] ReadOutcome ReadBody(LinkSocket& socket, MessageBuffer& message, bool wait);
    [[nodiscard]] static ReadOutcome OutcomeOf(ssize_t received);

    const uint32_t segmentBytes_;
    std::array<char, 4> length_{};  // of the message to come
    size_t lengthBytes_ = 0;        // of it that arrived
    bool inBody_ = false;
    uint32_t declared_ = 0;  // bytes of the message in hand
    size_t arrived_ = 0;     // of them that are in the buffer
    MessageBuffer stash_;    // the message in hand between two reads
};

}  // namespace tiv::soft_driver

// Builds the packet that carries one file chunk.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hdc/file_chunk.h"
#include "hdc/request_packet.h"

namespace analysis {
namespace rokt {
namespace transport {

// Makes the wire form of a chunk with one copy of its bytes: the encoded fields in front of them,
// the bytes, the encoded fields behind them, all in one packet.
//
//   +------------+-------------+------------------------+--------------+---------------+
//   | TLV header | type name   | Hdr, FileName, Offset  | Chunk        | other fields  |
//   +------------+-------------+------------------------+--------------+---------------+
//
// An encoder writes fields in the order of their numbers, so that the parts encoded by themselves
// and laid side by side are byte for byte the encoding of the whole message.
//
// The memory of a packet is kept for the next one: fresh pages for every chunk cost more than the
// copy. A packet above KEEP_LIMIT bytes is the exception: Trim lets it go.
//
// Belongs to one thread at a time.
class ChunkPacket {
 public:
    static constexpr size_t KEEP_LIMIT = 8U << 20;

    ChunkPacket() = default;
    ~ChunkPacket();
    ChunkPacket(const ChunkPacket&) = delete;
    ChunkPacket& operator=(const ChunkPacket&) = delete;

    // Builds the packet of `chunk`; 0, or -1 when there is no memory for it or no message of that
    // size. A chunkSize beyond the chunk's string counts as the string's size. Throws
    // std::bad_alloc when the small fields find no memory.
    [[nodiscard]] int Build(const ProfileFileChunk& chunk);

    // The packet of the last Build that gave 0, valid until the next one.
    const IdeTlvReq* Packet() const { return packet; }
    // The same for HdcWriteInPlace: there is room around it.
    char* Bytes() { return reinterpret_cast<char*>(packet); }
    // Bytes to send.
    uint32_t PacketLength() const { return IDE_TLV_HEADER_LEN + valueLength; }
    // Bytes of the frame inside the packet; told also when only the memory for it was missing.
    uint32_t ValueLength() const { return valueLength; }

    // Drops a packet above KEEP_LIMIT; called when it has been sent.
    void Trim();

 private:
    [[nodiscard]] bool Reserve(size_t bytes);
    void Release();

    char* block = nullptr;        // room in front, the packet, room behind
    IdeTlvReq* packet = nullptr;  // within `block`
    size_t capacity = 0;          // bytes of `block`
    uint32_t valueLength = 0;
};

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
